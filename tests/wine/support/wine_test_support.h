// What the Wine test programs share, one header per concern: failure
// reports, text, files and waits, registry values, the test desktop, the
// loaded library, the runner that picks one named test and runs it in this
// process or in a private copy of the program, and the world such a copy
// runs in (folders, packages and the doubles' fixture).
//
// Header only, every function inline, everything in namespace wine_test. The
// test desktop's own programs (test_desktop.exe, app_visibility_server.dll)
// take only the control values, the desktop's event names and narrow().
#pragma once

#include "support/desktop.h"
#include "support/failure.h"
#include "support/files.h"
#include "support/host_world.h"
#include "support/library.h"
#include "support/registry.h"
#include "support/runner.h"
#include "support/text.h"
#include "support/windows_headers.h"

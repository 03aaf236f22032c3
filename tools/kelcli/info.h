// kelcli info: what the library would find in this process, printed without
// calling any export and without changing anything.
#pragma once

#include "library.h"

namespace kelcli {

bool PrintInfo(const Library& lib);

}  // namespace kelcli

// Installs a platform for a scope, as ScopedFakePlatform does with its own;
// the log is reset on the way in and out, so a benchmark starts with the log
// off whatever ran before it.
#pragma once

#include "frame/log.h"
#include "platform/platform.h"

namespace kel::bench {

class ScopedPlatform {
 public:
  explicit ScopedPlatform(platform::Platform& installed) {
    ResetLog();
    platform::Install(&installed);
  }
  ~ScopedPlatform() {
    ResetLog();
    platform::Install(nullptr);
  }
  ScopedPlatform(const ScopedPlatform&) = delete;
  ScopedPlatform& operator=(const ScopedPlatform&) = delete;
};

}  // namespace kel::bench

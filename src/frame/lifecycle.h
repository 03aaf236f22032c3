// Library-wide state of the export frame.
#pragma once

#include <atomic>

#include "platform/types.h"

namespace kel {

// How many KelInitialize calls are outstanding; never below 0.
extern std::atomic<std::int32_t> g_nInitCount;

// Re-reads the "DebugLog" switch and, when it is on, builds the log path.
// The switch's own trace lines go out under the switch as it stood before.
void RereadLogSwitch();

}  // namespace kel

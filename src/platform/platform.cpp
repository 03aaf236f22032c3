#include "platform/platform.h"

#include <atomic>

namespace kel::platform {
namespace {
std::atomic<Platform*> g_current{nullptr};
}  // namespace

Platform& Current() { return *g_current.load(std::memory_order_acquire); }

void Install(Platform* platform) { g_current.store(platform, std::memory_order_release); }

}  // namespace kel::platform

#include "catalogue/catalogue_lock.h"

#include "frame/log.h"

namespace kel {
namespace {

// The lock the current thread holds through a CatalogueLock, if any.
thread_local std::unique_lock<std::mutex>* t_held = nullptr;
// How many catalogue locks the current thread owns at this moment. While it
// owns any, its trace lines wait in memory: writing them means opening a
// file, which no one may do with the catalogue locked.
thread_local int t_owned = 0;

void Acquired() noexcept {
  if (t_owned++ == 0) DeferLogLines();
}

void Released() noexcept {
  if (--t_owned == 0) FlushDeferredLogLines();
}

}  // namespace

CatalogueLock::CatalogueLock(std::mutex& mutex) : lock_(mutex), outer_(t_held) {
  t_held = &lock_;
  Acquired();
}

CatalogueLock::~CatalogueLock() {
  t_held = outer_;
  if (lock_.owns_lock()) {
    lock_.unlock();
    Released();
  }
}

CatalogueUnlocked::CatalogueUnlocked() : held_(t_held) {
  if (held_ != nullptr && held_->owns_lock()) {
    held_->unlock();
    Released();
  } else {
    held_ = nullptr;
  }
}

CatalogueUnlocked::~CatalogueUnlocked() {
  if (held_ != nullptr) {
    held_->lock();
    Acquired();
  }
}

}  // namespace kel

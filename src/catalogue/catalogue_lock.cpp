#include "catalogue/catalogue_lock.h"

namespace kel {
namespace {

// The lock the current thread holds through a CatalogueLock, if any.
thread_local std::unique_lock<std::mutex>* t_held = nullptr;

}  // namespace

CatalogueLock::CatalogueLock(std::mutex& mutex) : lock_(mutex), outer_(t_held) { t_held = &lock_; }

CatalogueLock::~CatalogueLock() { t_held = outer_; }

CatalogueUnlocked::CatalogueUnlocked() : held_(t_held) {
  if (held_ != nullptr && held_->owns_lock()) {
    held_->unlock();
  } else {
    held_ = nullptr;
  }
}

CatalogueUnlocked::~CatalogueUnlocked() {
  if (held_ != nullptr) held_->lock();
}

}  // namespace kel

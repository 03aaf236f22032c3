// The catalogue's one lock. Every catalogue operation holds it for its own
// duration; a record that has to ask the platform something slow (whether a
// package is installed, whether a shortcut file exists) lets go of it for
// that call and takes it back afterwards, so no export and no refresh step
// waits behind a slow query. Nor does the holder write the log file: the
// trace lines of a thread that holds the lock wait until it lets go of it
// (when the outermost lock ends or a CatalogueUnlocked begins).
#pragma once

#include <mutex>

#include "frame/non_copyable.h"

namespace kel {

class CatalogueLock : NonCopyable {
 public:
  explicit CatalogueLock(std::mutex& mutex);
  ~CatalogueLock();

 private:
  std::unique_lock<std::mutex> lock_;
  std::unique_lock<std::mutex>* outer_;
};

// Releases the lock this thread holds, if any, for its scope.
class CatalogueUnlocked : NonCopyable {
 public:
  CatalogueUnlocked();
  ~CatalogueUnlocked();

 private:
  std::unique_lock<std::mutex>* held_;
};

}  // namespace kel

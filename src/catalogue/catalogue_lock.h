// The catalogue's one lock. Every catalogue operation holds it for its own
// duration; a record that has to ask the platform something slow (whether a
// package is installed, whether a shortcut file exists) lets go of it for
// that call and takes it back afterwards, so no export and no refresh step
// waits behind a slow query. Nor does the holder write the log file: the
// trace lines of a thread that holds the lock wait until it lets go of it
// (when the outermost lock ends or a CatalogueUnlocked begins).
#pragma once

#include <mutex>

namespace kel {

class CatalogueLock {
 public:
  explicit CatalogueLock(std::mutex& mutex);
  ~CatalogueLock();
  CatalogueLock(const CatalogueLock&) = delete;
  CatalogueLock& operator=(const CatalogueLock&) = delete;

 private:
  std::unique_lock<std::mutex> lock_;
  std::unique_lock<std::mutex>* outer_;
};

// Releases the lock this thread holds, if any, for its scope.
class CatalogueUnlocked {
 public:
  CatalogueUnlocked();
  ~CatalogueUnlocked();
  CatalogueUnlocked(const CatalogueUnlocked&) = delete;
  CatalogueUnlocked& operator=(const CatalogueUnlocked&) = delete;

 private:
  std::unique_lock<std::mutex>* held_;
};

}  // namespace kel

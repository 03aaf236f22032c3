// A platform whose log file is a real file, written by POSIX calls.
#pragma once

#include <string>
#include <utility>

#include "fakes/fake_platform.h"

namespace kel::bench {

// The fake, with the log's file calls made by POSIX on one real file: every
// CreateFile opens `path` (whatever Windows path it is given), SetFilePointer
// is lseek, WriteFile is write, CloseHandle is close.
class PosixFilePlatform final : public fakes::FakePlatform {
 public:
  explicit PosixFilePlatform(std::string path) : path_(std::move(path)) {}

  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override;
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override;
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override;
  BOOL CloseHandle(Handle handle) override;

 private:
  std::string path_;
};

// A fresh temporary file name (the file itself is not created).
std::string TemporaryPath(const char* stem);

}  // namespace kel::bench

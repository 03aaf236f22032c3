#include "posix_file_platform.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>

namespace kel::bench {

namespace {

int Descriptor(Handle handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1; }

}  // namespace

Handle PosixFilePlatform::CreateFile(const WCHAR*, DWORD, DWORD, DWORD disposition, DWORD) {
  int flags = O_WRONLY | O_CLOEXEC;
  if (disposition == platform::OPEN_ALWAYS) flags |= O_CREAT;
  if (disposition == platform::CREATE_ALWAYS) flags |= O_CREAT | O_TRUNC;
  const int fd = ::open(path_.c_str(), flags, 0644);
  if (fd < 0) return platform::InvalidHandleValue();
  return reinterpret_cast<Handle>(static_cast<std::intptr_t>(fd) + 1);
}

DWORD PosixFilePlatform::SetFilePointer(Handle file, LONG distance, DWORD method) {
  const int whence = method == platform::FILE_END ? SEEK_END : method == 1 ? SEEK_CUR : SEEK_SET;
  const off_t at = ::lseek(Descriptor(file), distance, whence);
  return at < 0 ? platform::INVALID_SET_FILE_POINTER : static_cast<DWORD>(at);
}

BOOL PosixFilePlatform::WriteFile(Handle file, const void* data, DWORD length, DWORD* written) {
  const ssize_t n = ::write(Descriptor(file), data, length);
  if (written != nullptr) *written = n < 0 ? 0 : static_cast<DWORD>(n);
  return n == static_cast<ssize_t>(length) ? 1 : 0;
}

BOOL PosixFilePlatform::CloseHandle(Handle handle) { return ::close(Descriptor(handle)) == 0 ? 1 : 0; }

std::string TemporaryPath(const char* stem) {
  static std::atomic<int> counter{0};
  const char* folder = std::getenv("TMPDIR");
  std::string path = folder != nullptr && folder[0] != 0 ? folder : "/tmp";
  path += "/";
  path += stem;
  path += "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  return path;
}

}  // namespace kel::bench

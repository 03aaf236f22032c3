// The self-test's report: its lines and the library's log of the run, as
// UTF-8 text and JSON, named by computer and time, naming no user.
#pragma once

#include <windows.h>

#include <string>

#include "environment.h"
#include "selftest.h"

namespace kelcli {

// Writes the report to `given` (a file, or a folder when it ends in "\\" or
// names one) and its JSON twin; false with the reason in `error`.
bool WriteReport(const std::wstring& given, const SelfTest& test, const std::wstring& log, std::wstring& error);

// The log file's text as UTF-16, whatever the library wrote it in.
std::wstring DecodeLog(const std::string& bytes);

// Turns the library's log on for the self-test's calls and puts the switch
// back as it was; the log's new lines are the run's.
class LogForTheRun {
 public:
  explicit LogForTheRun(const std::wstring& logPath) : logPath_(logPath) {
    if (RegCreateKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr, &key_,
                        nullptr) != ERROR_SUCCESS) {
      key_ = nullptr;
      return;
    }
    DWORD size = sizeof(previous_);
    const LONG read =
        RegQueryValueExW(key_, L"DebugLog", nullptr, &previousType_, reinterpret_cast<BYTE*>(&previous_), &size);
    // A value that could not be kept whole is left alone, log or no log.
    if (read != ERROR_SUCCESS && read != ERROR_FILE_NOT_FOUND) return;
    hadValue_ = read == ERROR_SUCCESS;
    previousSize_ = size;
    const DWORD on = 1;
    switched_ = RegSetValueExW(key_, L"DebugLog", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&on), sizeof(on)) ==
                ERROR_SUCCESS;
    std::string bytes;
    DWORD error = 0;
    startOffset_ = ReadWholeFile(logPath_, bytes, error) ? bytes.size() : 0;
  }
  LogForTheRun(const LogForTheRun&) = delete;
  LogForTheRun& operator=(const LogForTheRun&) = delete;
  ~LogForTheRun() { Restore(); }

  [[nodiscard]] bool Switched() const { return switched_; }

  // The lines the library wrote since the switch was turned on.
  [[nodiscard]] std::wstring Lines() const {
    std::string bytes;
    DWORD error = 0;
    if (!ReadWholeFile(logPath_, bytes, error))
      return L"(no log was written: error " + std::to_wstring(error) + L")\r\n";
    if (bytes.size() < startOffset_) return DecodeLog(bytes);
    return DecodeLog(bytes.substr(startOffset_));
  }

  void Restore() {
    if (key_ == nullptr) return;
    if (switched_) {
      if (hadValue_)
        RegSetValueExW(key_, L"DebugLog", 0, previousType_, reinterpret_cast<const BYTE*>(&previous_), previousSize_);
      else
        RegDeleteValueW(key_, L"DebugLog");
    }
    RegCloseKey(key_);
    key_ = nullptr;
  }

 private:
  std::wstring logPath_;
  HKEY key_ = nullptr;
  bool hadValue_ = false;
  bool switched_ = false;
  DWORD previousType_ = 0;
  // A stored value the library ignores may be longer than a DWORD; only
  // that much is put back.
  unsigned char previous_[64] = {};
  DWORD previousSize_ = 0;
  size_t startOffset_ = 0;
};

}  // namespace kelcli

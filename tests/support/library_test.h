// The fixture of the unit tests: a fresh fake platform per test, with the
// helpers to turn the log on and read back what it wrote.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "fakes/fake_platform.h"
#include "frame/constants.h"
#include "frame/exports.h"
#include "frame/lifecycle.h"
#include "frame/log.h"

namespace kel::testing {

inline const WString kLocalAppData = u"C:\\Users\\kel\\AppData\\Local";
inline const WString kLogFolder = kLocalAppData + u"\\Osk\\Kelbrook";
inline const WString kLogFile = kLogFolder + u"\\KelbrookLogFS.txt";

class LibraryTest : public ::testing::Test {
 protected:
  LibraryTest() { g_nInitCount.store(0); }
  ~LibraryTest() override {
    // A package manager a test left running is stopped while its fake
    // platform still exists.
    if (g_nInitCount.load() > 0) {
      g_nInitCount.store(1);
      KelFinalize();
    }
    g_nInitCount.store(0);
  }

  // DebugLog = 1, the log folder present, the switch re-read.
  void EnableLog() {
    fake->SetDword(kSettingsKey, kDebugLogValue, 1);
    fake->AddDirectory(kLogFolder);
    RereadLogSwitch();
    fake->RemoveFile(kLogFile);
    fake->ClearCalls();
  }

  // The log's lines, each without its bracketed timestamp, line end kept.
  std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    const std::string text = fake->FileContent(kLogFile);
    std::size_t start = 0;
    while (start < text.size()) {
      std::size_t end = text.find("\r\n", start);
      end = end == std::string::npos ? text.size() : end + 2;
      std::string line = text.substr(start, end - start);
      const std::size_t close = line.find(']');
      if (!line.empty() && line[0] == '[' && close != std::string::npos) line.erase(0, close + 1);
      lines.push_back(line);
      start = end;
    }
    return lines;
  }

  // The log's lines that begin with `prefix`.
  std::vector<std::string> LogLinesStartingWith(const std::string& prefix) {
    std::vector<std::string> out;
    for (const std::string& line : LogLines()) {
      if (line.rfind(prefix, 0) == 0) out.push_back(line);
    }
    return out;
  }

  // The names of the recorded calls of the platform named in `which`, in order.
  std::vector<std::string> CallNames(std::initializer_list<const char*> which) {
    std::vector<std::string> names;
    for (const auto& call : fake->CallsNamed(which)) names.push_back(call.name);
    return names;
  }

  // The arguments of each recorded call of the platform's `name`, in order.
  std::vector<std::string> CallArgs(const char* name) {
    std::vector<std::string> args;
    for (const auto& call : fake->CallsNamed({name})) args.push_back(call.args);
    return args;
  }

  fakes::ScopedFakePlatform fake;
};

}  // namespace kel::testing

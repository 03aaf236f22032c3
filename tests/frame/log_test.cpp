#include "frame/log.h"

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "alloc_counter.h"
#include "frame/exports.h"
#include "library_test.h"

namespace kel {
namespace {

using testing::kLogFile;
using testing::kLogFolder;

class Log : public testing::LibraryTest {
 protected:
  // The log holds one line, starting with `start`, cut to fit the message
  // buffer with its line end kept.
  void ExpectOneLineCutToFit(const std::string& start) {
    const auto lines = LogLines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].size(), 1023u);
    EXPECT_EQ(lines[0].substr(0, start.size()), start);
    EXPECT_EQ(lines[0].substr(1021), "\r\n");
  }
};

TEST_F(Log, SwitchOffReturnsOneAndTouchesNoFile) {
  EXPECT_EQ(WriteDebugLog("%S IN\r\n", u"KelInitialize"), 1);
  EXPECT_TRUE(fake->CallsNamed({"CreateFile", "WriteFile"}).empty());
  EXPECT_FALSE(fake->Exists(kLogFile));
}

TEST_F(Log, SwitchOnWithoutFolderWritesNothingAndLeavesTheCallerAlone) {
  fake->SetDword(kSettingsKey, kDebugLogValue, 1);
  RereadLogSwitch();
  EXPECT_EQ(WriteDebugLog("%S IN\r\n", u"KelInitialize"), 0);
  EXPECT_FALSE(fake->Exists(kLogFile));
  EXPECT_EQ(KelLaunchByProtocolW(u""), E_INVALIDARG);
}

TEST_F(Log, TwoLinesGiveTwoTimestampedFileLines) {
  EnableLog();
  fake->SetLocalTime({2013, 5, 1, 20, 9, 4, 7, 31});
  WriteDebugLog("%S IN\r\n", u"KelInitialize");
  WriteDebugLog("%S OUT(0x%08X)\r\n", u"KelInitialize", 0);
  EXPECT_EQ(fake->FileContent(kLogFile),
            "[2013/05/20 09:04:07.031]KelInitialize IN\r\n"
            "[2013/05/20 09:04:07.031]KelInitialize OUT(0x00000000)\r\n");
}

TEST_F(Log, EachLineOpensSeeksToTheEndWritesTwiceAndCloses) {
  EnableLog();
  WriteDebugLog("%S IN\r\n", u"KelFinalize");
  const auto calls = fake->CallsNamed({"CreateFile", "SetFilePointer", "WriteFile", "CloseHandle"});
  ASSERT_EQ(calls.size(), 5u);
  EXPECT_EQ(calls[0].name, "CreateFile");
  EXPECT_EQ(calls[0].args, fakes::Narrow(kLogFile) + ", 0x40000000, 3, 4, 0x80");
  EXPECT_EQ(calls[1].name, "SetFilePointer");
  EXPECT_EQ(calls[1].args, "0, 2");
  EXPECT_EQ(calls[2].name, "WriteFile");
  EXPECT_EQ(calls[3].args, "KelFinalize IN\r\n");
  EXPECT_EQ(calls[4].name, "CloseHandle");
}

TEST_F(Log, LinesAreAppendedToWhatTheFileHeld) {
  EnableLog();
  fake->AddFile(kLogFile, "earlier\r\n");
  WriteDebugLog("%S OUT\r\n", u"KelFinalize");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"earlier\r\n", "KelFinalize OUT\r\n"}));
}

TEST_F(Log, NullFormatWritesNothing) {
  EnableLog();
  EXPECT_EQ(WriteDebugLogArgs(nullptr, nullptr, 0), 0);
  EXPECT_FALSE(fake->Exists(kLogFile));
}

TEST_F(Log, OverlongMessageIsCutToFitItsBufferAndKeepsItsLineEnd) {
  EnableLog();
  const WString longText(3000, u'x');
  EXPECT_NE(WriteDebugLog("%S(%S) IN\r\n", u"KelLaunchByProtocolW", longText), 0);
  ExpectOneLineCutToFit("KelLaunchByProtocolW(x");
}

TEST_F(Log, CutNeverSplitsAUtf8Sequence) {
  EnableLog();
  const WString longText(1000, u'\u3042');  // three bytes each in UTF-8
  WriteDebugLog("%S\r\n", longText);
  const std::string line = LogLines().at(0);
  ASSERT_LE(line.size(), 1023u);
  const std::string body = line.substr(0, line.size() - 2);
  EXPECT_EQ(body.size() % 3, 0u);
}

TEST_F(Log, HundredThousandCharacterKeywordIsCutWithoutAnAllocationOfItsSize) {
  EnableLog();
  fake->recordCalls = false;  // the record would copy the line
  const WString keyword(100000, u'm');
  std::size_t allocated = 0;
  int result = 0;
  {
    testing::AllocationCounter counter;
    result = WriteDebugLog("%S(%S, %d, %d) IN\r\n", u"KelLaunchBySearchW", keyword, 0, 1);
    allocated = counter.Bytes();
  }
  EXPECT_NE(result, 0);
  // What the fake's file system takes for the path and the line; the
  // keyword alone would be 100,000 bytes.
  EXPECT_LT(allocated, 8u * 1024u);
  ExpectOneLineCutToFit("KelLaunchBySearchW(m");
}

TEST_F(Log, FailedMessageWriteReturnsZeroAndClosesTheFile) {
  EnableLog();
  fake->FailCall(4);  // create, seek, the timestamp's write, the message's write
  EXPECT_EQ(WriteDebugLog("%S IN\r\n", u"KelFinalize"), 0);
  EXPECT_EQ(fake->CallsNamed({"CloseHandle"}).size(), 1u);
  EXPECT_EQ(fake->OpenHandles(), 0u);
}

// A platform whose chosen call throws, as a runtime that ran out of memory
// or a broken seam might.
enum class Throws { GetLocalTime, CreateFile, SetFilePointer, WriteFile, CloseHandle };

class ThrowingPlatform : public fakes::FakePlatform {
 public:
  explicit ThrowingPlatform(Throws which) : which_(which) { AddDirectory(testing::kLogFolder); }
  platform::SystemTime GetLocalTime() override {
    if (which_ == Throws::GetLocalTime) throw std::runtime_error("clock");
    return FakePlatform::GetLocalTime();
  }
  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override {
    if (which_ == Throws::CreateFile) throw std::bad_alloc();
    return FakePlatform::CreateFile(path, access, share, disposition, attributes);
  }
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override {
    if (which_ == Throws::SetFilePointer) throw std::bad_alloc();
    return FakePlatform::SetFilePointer(file, distance, method);
  }
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override {
    if (which_ == Throws::WriteFile) throw std::bad_alloc();
    return FakePlatform::WriteFile(file, data, length, written);
  }
  BOOL CloseHandle(Handle handle) override {
    ++closes;
    if (which_ == Throws::CloseHandle) throw 42;
    return FakePlatform::CloseHandle(handle);
  }
  int closes = 0;

 private:
  Throws which_;
};

class LogOnThrowingPlatform : public Log, public ::testing::WithParamInterface<Throws> {};

TEST_P(LogOnThrowingPlatform, WriterSwallowsTheExceptionReturnsZeroAndClosesOnce) {
  EnableLog();
  ThrowingPlatform throwing(GetParam());
  platform::Install(&throwing);
  int result = 1;
  bool escaped = false;
  try {
    result = WriteDebugLog("%S(%S) IN\r\n", u"KelLaunchByProtocolW", u"http://example.invalid");
  } catch (...) {
    escaped = true;
  }
  const bool opened = GetParam() != Throws::GetLocalTime && GetParam() != Throws::CreateFile;
  const int closes = throwing.closes;
  const std::size_t open = throwing.OpenHandles();
  platform::Install(&*fake);
  EXPECT_FALSE(escaped);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(closes, opened ? 1 : 0);
  if (GetParam() != Throws::CloseHandle) EXPECT_EQ(open, 0u);
}

std::string ThrowingCallName(const ::testing::TestParamInfo<Throws>& info) {
  constexpr const char* kNames[] = {"GetLocalTime", "CreateFile", "SetFilePointer", "WriteFile", "CloseHandle"};
  return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(EachCall, LogOnThrowingPlatform,
                         ::testing::Values(Throws::GetLocalTime, Throws::CreateFile, Throws::SetFilePointer,
                                           Throws::WriteFile, Throws::CloseHandle),
                         ThrowingCallName);

TEST_F(Log, WideTextIsWrittenAsUtf8) {
  EnableLog();
  WriteDebugLog("%S(%S) IN\r\n", u"KelLaunchBySearchW", u"\u30e1\u30fc\u30eb");
  EXPECT_EQ(LogLines().at(0), "KelLaunchBySearchW(\xE3\x83\xA1\xE3\x83\xBC\xE3\x83\xAB) IN\r\n");
}

TEST_F(Log, PathIsBuiltFromLocalAppData) {
  fake->SetEnv(u"LOCALAPPDATA", u"D:\\Data");
  ASSERT_TRUE(MakeLogFilePath());
  EXPECT_EQ(LogFilePath(), u"D:\\Data\\Osk\\Kelbrook\\KelbrookLogFS.txt");
}

TEST_F(Log, UnsetLocalAppDataGivesAPathAtTheDriveRoot) {
  fake->UnsetEnv(u"LOCALAPPDATA");
  ASSERT_TRUE(MakeLogFilePath());
  EXPECT_EQ(LogFilePath(), u"\\Osk\\Kelbrook\\KelbrookLogFS.txt");
}

TEST_F(Log, OverlongLocalAppDataLeavesThePathAsItWas) {
  ASSERT_TRUE(MakeLogFilePath());
  const WString before = LogFilePath();
  fake->SetEnv(u"LOCALAPPDATA", WString(260, u'a'));
  EXPECT_FALSE(MakeLogFilePath());
  EXPECT_EQ(LogFilePath(), before);
}

TEST_F(Log, PathThatWouldNotFitItsBufferIsSkipped) {
  ASSERT_TRUE(MakeLogFilePath());
  const WString before = LogFilePath();
  fake->SetEnv(u"LOCALAPPDATA", WString(240, u'a'));  // fits alone, not with the file name
  EXPECT_FALSE(MakeLogFilePath());
  EXPECT_EQ(LogFilePath(), before);
}

}  // namespace
}  // namespace kel

#include "launch/clipboard.h"

#include <gtest/gtest.h>

#include "library_test.h"

namespace kel {
namespace {

class Clipboard : public testing::LibraryTest {
 protected:
  std::vector<std::string> ClipboardCalls() {
    return CallNames({"OpenClipboard", "GlobalAlloc", "GlobalLock", "GlobalUnlock", "EmptyClipboard",
                      "SetClipboardData", "GlobalFree", "CloseClipboard"});
  }
};

TEST_F(Clipboard, TextIsHandedOverAsUnicodeTextAndTheBlockFreedAfterwards) {
  EXPECT_EQ(CKELClipboard::SetClipboardData(u"\"x\" NOT(\"a\")"), S_OK);
  EXPECT_EQ(fake->clipboardText, u"\"x\" NOT(\"a\")");
  EXPECT_EQ(ClipboardCalls(),
            (std::vector<std::string>{"OpenClipboard", "GlobalAlloc", "GlobalLock", "GlobalUnlock", "EmptyClipboard",
                                      "SetClipboardData", "GlobalFree", "CloseClipboard"}));
  EXPECT_EQ(fake->CallsNamed({"SetClipboardData"}).at(0).args, "13");
}

TEST_F(Clipboard, OneCharacterAllocatesFourMovableZeroedBytes) {
  (void)CKELClipboard::SetClipboardData(u"x");
  EXPECT_EQ(fake->CallsNamed({"GlobalAlloc"}).at(0).args, "0x42, 4");
}

TEST_F(Clipboard, EmptyTextIsRefusedWithoutOpeningTheClipboard) {
  EXPECT_EQ(CKELClipboard::SetClipboardData(u""), E_INVALIDARG);
  EXPECT_EQ(CKELClipboard::SetClipboardData(nullptr), E_POINTER);
  EXPECT_TRUE(ClipboardCalls().empty());
}

TEST_F(Clipboard, ClipboardThatCannotBeOpenedFailsWithOnlyEntryAndExitLines) {
  EnableLog();
  fake->openClipboardFails = true;
  EXPECT_EQ(CKELClipboard::SetClipboardData(u"x"), E_FAIL);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"CKELClipboard::SetClipboardData(x) IN\r\n",
                                                  "CKELClipboard::SetClipboardData OUT(0x80004005)\r\n"}));
  EXPECT_EQ(ClipboardCalls(), (std::vector<std::string>{"OpenClipboard"}));
}

TEST_F(Clipboard, FailedHandOverIsLoggedButStillSucceeds) {
  EnableLog();
  fake->setClipboardDataFails = true;
  EXPECT_EQ(CKELClipboard::SetClipboardData(u"x"), S_OK);
  EXPECT_EQ(LogLines().at(1),
            "CKELClipboard::SetClipboardData ERROR SetClipboardData(CF_UNICODETEXT, hg) Failed. ErrCode = 1418\r\n");
  EXPECT_EQ(LogLines().back(), "CKELClipboard::SetClipboardData OUT(0x00000000)\r\n");
  EXPECT_EQ(ClipboardCalls().back(), "CloseClipboard");
}

TEST_F(Clipboard, FailedAllocationClosesTheClipboard) {
  EnableLog();
  fake->globalAllocFails = true;
  EXPECT_EQ(CKELClipboard::SetClipboardData(u"x"), E_FAIL);
  EXPECT_EQ(LogLines().at(1), "CKELClipboard::SetClipboardData ERROR GlobalAlloc(GHND, szLen) Failed\r\n");
  EXPECT_EQ(ClipboardCalls(), (std::vector<std::string>{"OpenClipboard", "GlobalAlloc", "CloseClipboard"}));
}

TEST_F(Clipboard, FailedLockFreesTheBlockAndClosesTheClipboard) {
  EnableLog();
  fake->globalLockFails = true;
  EXPECT_EQ(CKELClipboard::SetClipboardData(u"x"), E_FAIL);
  EXPECT_EQ(LogLines().at(1), "CKELClipboard::SetClipboardData ERROR GlobalLock(hg) Failed\r\n");
  EXPECT_EQ(ClipboardCalls(),
            (std::vector<std::string>{"OpenClipboard", "GlobalAlloc", "GlobalLock", "GlobalFree", "CloseClipboard"}));
}

}  // namespace
}  // namespace kel

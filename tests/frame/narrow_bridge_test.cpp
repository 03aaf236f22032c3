#include "frame/narrow_bridge.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "frame/exports.h"
#include "library_test.h"

namespace kel {
namespace {

// "メール" in Shift JIS.
constexpr char kMailSjis[] = "\x83\x81\x81\x5B\x83\x8B";
constexpr char16_t kMailWide[] = u"\u30e1\u30fc\u30eb";

class NarrowBridge : public testing::LibraryTest {};

TEST_F(NarrowBridge, ValidShiftJisBecomesTheCorrespondingUtf16) {
  char16_t* wide = nullptr;
  ASSERT_EQ(ShiftJisToWideChar(kMailSjis, &wide), S_OK);
  EXPECT_EQ(WString(wide), kMailWide);
  std::free(wide);
}

TEST_F(NarrowBridge, ConversionAsksCodePage932ForTheSizeThenConverts) {
  char16_t* wide = nullptr;
  ASSERT_EQ(ShiftJisToWideChar("abc", &wide), S_OK);
  std::free(wide);
  EXPECT_EQ(CallArgs("MultiByteToWideChar"),
            (std::vector<std::string>{"932, 1, 4294967295, 0", "932, 1, 4294967295, 4"}));
}

TEST_F(NarrowBridge, ConversionTracesItsSourceAndResult) {
  EnableLog();
  char16_t* wide = nullptr;
  ASSERT_EQ(ShiftJisToWideChar(kMailSjis, &wide), S_OK);
  std::free(wide);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            std::string("ShiftJisToWideChar(") + kMailSjis + ") IN\r\n",
                            "ShiftJisToWideChar OUT(0x00000000 *ppWideChar = \xE3\x83\xA1\xE3\x83\xBC\xE3\x83\xAB)\r\n",
                        }));
}

TEST_F(NarrowBridge, InvalidShiftJisIsReplacedNotRefused) {
  char16_t* wide = nullptr;
  // clang-format off
  ASSERT_EQ(ShiftJisToWideChar("a\x81\x20" "b\x81", &wide), S_OK);
  EXPECT_EQ(WString(wide), u"a\u30fb" u"b\u30fb");
  // clang-format on
  std::free(wide);
}

TEST_F(NarrowBridge, NullAndEmptyArgumentsAreRefused) {
  char16_t* wide = nullptr;
  EXPECT_EQ(ShiftJisToWideChar(nullptr, &wide), E_POINTER);
  EXPECT_EQ(ShiftJisToWideChar("a", nullptr), E_POINTER);
  EXPECT_EQ(ShiftJisToWideChar("", &wide), E_INVALIDARG);
  EXPECT_EQ(wide, nullptr);
  EXPECT_TRUE(fake->CallsNamed({"MultiByteToWideChar"}).empty());
}

TEST_F(NarrowBridge, FailedSizeQueryGivesFailAndLeavesTheOutPointer) {
  fake->FailMultiByteToWideChar(true);
  char16_t sentinel = 0;
  char16_t* wide = &sentinel;
  EXPECT_EQ(ShiftJisToWideChar("abc", &wide), E_FAIL);
  EXPECT_EQ(wide, &sentinel);
}

TEST_F(NarrowBridge, NarrowExportReachesItsWidePartnerWithTheConvertedText) {
  EnableLog();
  EXPECT_EQ(KelLaunchStoreA(kMailSjis), S_OK);
  EXPECT_EQ(fake->CallsNamed({"ShellExecute"}).at(0).args,
            "null, open, ms-windows-store:PDP?PFN=\xE3\x83\xA1\xE3\x83\xBC\xE3\x83\xAB, null, null, 5");
  EXPECT_EQ(LogLines().front(), std::string("KelLaunchStoreA(") + kMailSjis + ") IN\r\n");
  EXPECT_EQ(LogLines().back(), "KelLaunchStoreA OUT(0x00000000)\r\n");
}

TEST_F(NarrowBridge, WidePartnersResultIsPassedOnUnchanged) {
  fake->SetShellExecuteResult(2);
  EXPECT_EQ(KelLaunchByProtocolA("kelrec:x"), E_FAIL);
  fake->SetShellExecuteResult(33);
  EXPECT_EQ(KelLaunchByProtocolA("kelrec:x"), S_OK);
}

TEST_F(NarrowBridge, FailedConversionGivesFailWithoutCallingTheWideExport) {
  fake->FailMultiByteToWideChar(true);
  BOOL installed = 0;
  EXPECT_EQ(KelLaunchByProtocolA("kelrec:x"), E_FAIL);
  EXPECT_EQ(KelLaunchStoreA("Foo_abc"), E_FAIL);
  EXPECT_EQ(KelIsInstalledA("Foo_abc", &installed), E_FAIL);
  EXPECT_EQ(KelLaunchBySearchA("x", 0, 0), E_FAIL);
  EXPECT_EQ(KelLaunchByPFNA("Foo_abc", 0, 0), E_FAIL);
  EXPECT_EQ(KelLaunchBrowserByProtocolA("http://x", 0), E_FAIL);
  EXPECT_EQ(KelLaunchByAppUserModelIdA("App!Id"), E_FAIL);
  EXPECT_TRUE(fake->CallsNamed({"ShellExecute"}).empty());
}

TEST_F(NarrowBridge, ChecksRunBeforeConversionInTheirOrder) {
  BOOL installed = 0;
  EXPECT_EQ(KelLaunchByProtocolA(nullptr), E_POINTER);
  EXPECT_EQ(KelLaunchByProtocolA(""), E_INVALIDARG);
  EXPECT_EQ(KelLaunchStoreA(nullptr), E_POINTER);
  EXPECT_EQ(KelLaunchStoreA(""), E_INVALIDARG);
  EXPECT_EQ(KelIsInstalledA(nullptr, &installed), E_POINTER);
  EXPECT_EQ(KelIsInstalledA("", nullptr), E_POINTER);
  EXPECT_EQ(KelIsInstalledA("", &installed), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBySearchA(nullptr, 9, 0), E_POINTER);
  EXPECT_EQ(KelLaunchBySearchA("", 0, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBySearchA("x", 3, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchByPFNA(nullptr, 9, 0), E_POINTER);
  EXPECT_EQ(KelLaunchByPFNA("x", 0xFFFFFFFF, 0), E_INVALIDARG);
  EXPECT_EQ(KelLaunchBrowserByProtocolA(nullptr, 0), E_POINTER);
  EXPECT_EQ(KelLaunchBrowserByProtocolA("http:", 3), E_INVALIDARG);
  EXPECT_EQ(KelLaunchByAppUserModelIdA(nullptr), E_POINTER);
  EXPECT_TRUE(fake->CallsNamed({"MultiByteToWideChar"}).empty());
}

TEST_F(NarrowBridge, BrowserAddressOfFourBytesIsRefusedWithoutConverting) {
  EXPECT_EQ(KelLaunchBrowserByProtocolA("http", 0), E_INVALIDARG);
  EXPECT_TRUE(fake->CallsNamed({"MultiByteToWideChar"}).empty());
}

TEST_F(NarrowBridge, EmptyAppUserModelIdIsHandedOnAsAnEmptyWideId) {
  EnableLog();
  (void)KelLaunchByAppUserModelIdA("");
  EXPECT_TRUE(fake->CallsNamed({"MultiByteToWideChar"}).empty());
  EXPECT_FALSE(LogLinesStartingWith("KelLaunchByAppUserModelIdW() IN\r\n").empty());
}

TEST_F(NarrowBridge, NarrowEntryLinesShowTheirArguments) {
  EnableLog();
  (void)KelLaunchBySearchA("", 1, 2);
  (void)KelLaunchBrowserByProtocolA("ftp", 1);
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{"KelLaunchBySearchA(, 1, 2) IN\r\n", "KelLaunchBySearchA OUT(0x80070057)\r\n",
                                      "KelLaunchBrowserByProtocolA(ftp, 1) IN\r\n",
                                      "KelLaunchBrowserByProtocolA OUT(0x80070057)\r\n"}));
}

TEST_F(NarrowBridge, ReleaseOfNullWritesItsTwoLinesAndNothingElse) {
  EnableLog();
  KelReleaseStringW(nullptr);
  KelReleaseStringA(nullptr);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"KelReleaseStringW IN\r\n", "KelReleaseStringW OUT\r\n",
                                                  "KelReleaseStringA IN\r\n", "KelReleaseStringA OUT\r\n"}));
  EXPECT_TRUE(fake->CallsNamed({"LocalFree"}).empty());
}

TEST_F(NarrowBridge, ReleaseFreesLocalHeapStrings) {
  void* wide = fake->LocalAlloc(platform::LMEM_ZEROINIT, 512);
  void* narrow = fake->LocalAlloc(platform::LMEM_ZEROINIT, 16);
  ASSERT_EQ(fake->LiveLocalAllocations(), 2u);
  KelReleaseStringW(static_cast<char16_t*>(wide));
  KelReleaseStringA(static_cast<char*>(narrow));
  EXPECT_EQ(fake->LiveLocalAllocations(), 0u);
}

}  // namespace
}  // namespace kel

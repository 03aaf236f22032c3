#include <gtest/gtest.h>

#include "frame/exports.h"
#include "library_test.h"

namespace kel {
namespace {

class ProtocolLaunch : public testing::LibraryTest {};

TEST_F(ProtocolLaunch, ShellAnswerOf32IsAFailure) {
  fake->SetShellExecuteResult(32);
  EXPECT_EQ(KelLaunchByProtocolW(u"kelrec:x"), E_FAIL);
}

TEST_F(ProtocolLaunch, ShellAnswerOf33IsSuccess) {
  fake->SetShellExecuteResult(33);
  EXPECT_EQ(KelLaunchByProtocolW(u"kelrec:x"), S_OK);
}

TEST_F(ProtocolLaunch, ShellAnswerIsTakenAsASigned32BitNumber) {
  fake->SetShellExecuteResult(static_cast<std::intptr_t>(0x100000002LL));
  EXPECT_EQ(KelLaunchByProtocolW(u"kelrec:x"), E_FAIL);
  fake->SetShellExecuteResult(-5);
  EXPECT_EQ(KelLaunchByProtocolW(u"kelrec:x"), E_FAIL);
}

TEST_F(ProtocolLaunch, TargetIsOpenedUnchangedWithTheOpenVerb) {
  (void)KelLaunchByProtocolW(u"kelrec:hello?a=1&b=\"2\"");
  const auto calls = fake->CallsNamed({"ShellExecute"});
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].args, "null, open, kelrec:hello?a=1&b=\"2\", null, null, 5");
}

TEST_F(ProtocolLaunch, EmptyTargetIsRefusedWithoutCallingTheShell) {
  EXPECT_EQ(KelLaunchByProtocolW(u""), E_INVALIDARG);
  EXPECT_TRUE(fake->CallsNamed({"ShellExecute"}).empty());
}

TEST_F(ProtocolLaunch, NullTargetIsLoggedBeforeItIsRefused) {
  EnableLog();
  EXPECT_EQ(KelLaunchByProtocolW(nullptr), E_POINTER);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"KelLaunchByProtocolW((null)) IN\r\n",
                                                  "KelLaunchByProtocolW OUT(0x80004003)\r\n"}));
}

TEST_F(ProtocolLaunch, SuccessfulLaunchIsTraced) {
  EnableLog();
  (void)KelLaunchByProtocolW(u"https://example.invalid/");
  EXPECT_EQ(LogLines(), (std::vector<std::string>{"KelLaunchByProtocolW(https://example.invalid/) IN\r\n",
                                                  "KelLaunchByProtocolW OUT(0x00000000)\r\n"}));
}

}  // namespace
}  // namespace kel

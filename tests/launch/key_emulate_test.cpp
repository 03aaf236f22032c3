#include "launch/key_emulate.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "library_test.h"

namespace kel {
namespace {

using platform::KEYEVENTF_EXTENDEDKEY;
using platform::KEYEVENTF_KEYUP;
using platform::KEYEVENTF_SCANCODE;

struct Event {
  WORD vk;
  WORD scan;
  DWORD flags;
  bool operator==(const Event&) const = default;
};

class KeyEmulate : public testing::LibraryTest {
 protected:
  std::vector<Event> Events() {
    std::vector<Event> out;
    for (const auto& input : fake->inputs) {
      EXPECT_EQ(input.time, 0u);
      EXPECT_EQ(input.dwExtraInfo, 0u);
      out.push_back({input.wVk, input.wScan, input.dwFlags});
    }
    return out;
  }
};

// A key sequence, the events it sends and the pauses after each.
struct SequenceCase {
  const char* name;
  void (*send)();
  std::vector<Event> events;
  std::vector<DWORD> sleeps;
};

void PrintTo(const SequenceCase& c, std::ostream* out) { *out << c.name; }

class KeySequence : public KeyEmulate, public ::testing::WithParamInterface<SequenceCase> {};

TEST_P(KeySequence, SendsItsEventsEachFollowedByItsPause) {
  GetParam().send();
  EXPECT_EQ(Events(), GetParam().events);
  EXPECT_EQ(fake->Sleeps(), GetParam().sleeps);
}

INSTANTIATE_TEST_SUITE_P(KeyEmulate, KeySequence,
                         ::testing::Values(SequenceCase{"ShiftInsertIsShiftDownInsertDownInsertUpShiftUp",
                                                        &CKELKeyEmulate::SendInput_Shift_Insert,
                                                        {{0x10, 0x2A, KEYEVENTF_SCANCODE},
                                                         {0x2D, 0, KEYEVENTF_EXTENDEDKEY},
                                                         {0x2D, 0, KEYEVENTF_KEYUP},
                                                         {0x10, 0x2A, KEYEVENTF_KEYUP}},
                                                        {50, 50, 1000, 50}},
                                           SequenceCase{"WindowsQPressesTheSearchCharm",
                                                        &CKELKeyEmulate::SendInput_Win_Q,
                                                        {{0x5B, 0, KEYEVENTF_EXTENDEDKEY},
                                                         {0x51, 0x10, KEYEVENTF_SCANCODE},
                                                         {0x51, 0x10, KEYEVENTF_KEYUP},
                                                         {0x5B, 0, KEYEVENTF_KEYUP}},
                                                        {50, 50, 100, 200}},
                                           SequenceCase{"EnterIsAnExtendedPressAndAPlainRelease",
                                                        &CKELKeyEmulate::SendInput_Enter,
                                                        {{0x0D, 0, KEYEVENTF_EXTENDEDKEY}, {0x0D, 0, KEYEVENTF_KEYUP}},
                                                        {50, 50}},
                                           SequenceCase{"WindowsKeyAlone",
                                                        &CKELKeyEmulate::Sendinput_Win,
                                                        {{0x5B, 0, KEYEVENTF_EXTENDEDKEY}, {0x5B, 0, KEYEVENTF_KEYUP}},
                                                        {50, 50}}),
                         [](const ::testing::TestParamInfo<SequenceCase>& info) {
                           return std::string(info.param.name);
                         });

TEST_F(KeyEmulate, ScanCodesAreMappedAfreshForEachEvent) {
  CKELKeyEmulate::SendInput_Shift_Insert();
  const auto maps = fake->CallsNamed({"MapVirtualKey"});
  ASSERT_EQ(maps.size(), 2u);
  EXPECT_EQ(maps[0].args, "0x10, 0");
  EXPECT_EQ(maps[1].args, "0x10, 0");
}

TEST_F(KeyEmulate, EachEventIsSentAloneAndThenSlept) {
  CKELKeyEmulate::SendInput_Enter();
  const auto calls = fake->CallsNamed({"SendInput", "Sleep"});
  std::vector<std::string> names;
  names.reserve(calls.size());
  for (const auto& c : calls) names.push_back(c.name);
  EXPECT_EQ(names, (std::vector<std::string>{"SendInput", "Sleep", "SendInput", "Sleep"}));
}

TEST_F(KeyEmulate, SequencesAndEventsAreTraced) {
  EnableLog();
  CKELKeyEmulate::SendInput_Enter();
  CKELKeyEmulate::Sendinput_Key(0x10, 0x2A, KEYEVENTF_SCANCODE);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELKeyEmulate::SendInput_Enter IN\r\n",
                            "CKELKeyEmulate::Sendinput_Key(0x000D, 0x00000001) IN\r\n",
                            "CKELKeyEmulate::Sendinput_Key OUT\r\n",
                            "CKELKeyEmulate::Sendinput_Key(0x000D, 0x00000002) IN\r\n",
                            "CKELKeyEmulate::Sendinput_Key OUT\r\n",
                            "CKELKeyEmulate::SendInput_Enter OUT\r\n",
                            "CKELKeyEmulate::Sendinput_Key(0x0010, 0x002A, 0x00000008) IN\r\n",
                            "CKELKeyEmulate::Sendinput_Key OUT\r\n",
                        }));
}

}  // namespace
}  // namespace kel

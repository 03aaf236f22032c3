#include "launch/monitor_mode.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "frame/exports.h"
#include "library_test.h"

namespace kel {
namespace {

using platform::MAV_APP_VISIBLE;
using platform::MAV_NO_APP_VISIBLE;
using platform::MAV_UNKNOWN;

constexpr HRESULT kAccessDenied = static_cast<HRESULT>(0x80070005u);

std::string GuidText(const platform::Guid& g) {
  return FormatNarrow("{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                      {g.data1, g.data2, g.data3, g.data4[0], g.data4[1], g.data4[2], g.data4[3], g.data4[4],
                       g.data4[5], g.data4[6], g.data4[7]});
}

class MonitorMode : public testing::LibraryTest {};

TEST_F(MonitorMode, AppVisibilityIdentitiesAreThePublishedOnes) {
  EXPECT_EQ(GuidText(platform::CLSID_AppVisibility), "{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}");
  EXPECT_EQ(GuidText(platform::IID_IAppVisibility), "{2246EA2D-CAEA-4444-A3C4-6DE827E44313}");
}

// What the visibility object answers, through which entry the mode is asked
// for, and what the query gives.
struct ModeCase {
  const char* name;
  int visibility;
  std::vector<BOOL> launcherAnswers;
  HRESULT (*query)(UINT*);
  HRESULT expected;
  UINT mode;  // the output afterwards; 99 is what it held before
};

void PrintTo(const ModeCase& c, std::ostream* os) { *os << c.name; }

class MonitorModeQuery : public MonitorMode, public ::testing::WithParamInterface<ModeCase> {};

TEST_P(MonitorModeQuery, GivesTheModeOfWhatIsVisible) {
  const ModeCase& c = GetParam();
  fake->visibility = c.visibility;
  fake->launcherAnswers = c.launcherAnswers;
  UINT mode = 99;
  EXPECT_EQ(c.query(&mode), c.expected);
  EXPECT_EQ(mode, c.mode);
  EXPECT_EQ(fake->appVisibilityObjectsAlive, 0);
}

INSTANTIATE_TEST_SUITE_P(
    MonitorMode, MonitorModeQuery,
    ::testing::Values(
        ModeCase{"DesktopWithoutAppsIsModeZero", MAV_NO_APP_VISIBLE, {0}, &CKELMonitorMode::GetMonitorMode, S_OK, 0},
        ModeCase{"VisibleStoreAppIsModeOne", MAV_APP_VISIBLE, {0}, &KelGetMonitorMode, S_OK, 1},
        ModeCase{
            "LauncherVisibleWithAVisibleAppIsModeTwo", MAV_APP_VISIBLE, {1}, &CKELMonitorMode::GetMonitorMode, S_OK, 2},
        ModeCase{"UnknownVisibilityFailsAndLeavesTheOutputAsItWas",
                 MAV_UNKNOWN,
                 {0},
                 &CKELMonitorMode::GetMonitorMode,
                 E_FAIL,
                 99}),
    [](const ::testing::TestParamInfo<ModeCase>& info) { return std::string(info.param.name); });

TEST_F(MonitorMode, QueryAsksThePrimaryMonitorAndReleasesEverything) {
  UINT mode = 0;
  (void)CKELMonitorMode::GetMonitorMode(&mode);
  EXPECT_EQ(CallNames({"CoInitializeEx", "CoCreateInstance", "MonitorFromPoint", "GetAppVisibilityOnMonitor",
                       "IsLauncherVisible", "Release", "CoUninitialize"}),
            (std::vector<std::string>{"CoInitializeEx", "CoCreateInstance", "MonitorFromPoint",
                                      "GetAppVisibilityOnMonitor", "IsLauncherVisible", "Release", "CoUninitialize"}));
  EXPECT_EQ(fake->CallsNamed({"CoInitializeEx"}).at(0).args, "2");
  EXPECT_EQ(fake->CallsNamed({"CoCreateInstance"}).at(0).args,
            "{7E5FE3D9-985F-4908-91F9-EE19F9FD1514}, null, 1, {2246EA2D-CAEA-4444-A3C4-6DE827E44313}");
  EXPECT_EQ(fake->CallsNamed({"MonitorFromPoint"}).at(0).args, "0, 0, 1");
}

TEST_F(MonitorMode, FailedVisibilityQuerySkipsTheLauncherQuery) {
  fake->visibilityResult = E_OUTOFMEMORY;
  UINT mode = 7;
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(&mode), E_OUTOFMEMORY);
  EXPECT_EQ(mode, 7u);
  EXPECT_TRUE(fake->CallsNamed({"IsLauncherVisible"}).empty());
  EXPECT_EQ(fake->appVisibilityObjectsAlive, 0);
}

TEST_F(MonitorMode, FailedLauncherQueryIsReturned) {
  fake->launcherResult = kAccessDenied;
  UINT mode = 7;
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(&mode), kAccessDenied);
  EXPECT_EQ(mode, 7u);
}

TEST_F(MonitorMode, NullOutputIsRefused) {
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(nullptr), E_POINTER);
  EXPECT_TRUE(fake->CallsNamed({"CoInitializeEx"}).empty());
}

TEST_F(MonitorMode, MultiThreadedApartmentStillCreatesButDoesNotUninitialize) {
  fake->coInitializeResult = RPC_E_CHANGED_MODE;
  UINT mode = 0;
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(&mode), S_OK);
  EXPECT_TRUE(fake->CallsNamed({"CoUninitialize"}).empty());
}

TEST_F(MonitorMode, FailedCreationUninitializesOnceEvenInAMultiThreadedApartment) {
  fake->coInitializeResult = RPC_E_CHANGED_MODE;
  fake->createAppVisibilityResult = REGDB_E_CLASSNOTREG;
  UINT mode = 0;
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(&mode), REGDB_E_CLASSNOTREG);
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
}

TEST_F(MonitorMode, CreationThatGivesNoObjectIsAPointerFailure) {
  EnableLog();
  fake->createAppVisibilityGivesObject = false;
  UINT mode = 7;
  EXPECT_EQ(CKELMonitorMode::GetMonitorMode(&mode), E_POINTER);
  EXPECT_EQ(mode, 7u);
  EXPECT_EQ(CKELMonitorMode::SwitchToStartScreen(), E_POINTER);
  EXPECT_TRUE(fake->inputs.empty());
  EXPECT_TRUE(fake->CallsNamed({"GetAppVisibilityOnMonitor", "IsLauncherVisible"}).empty());
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 2u);
  EXPECT_EQ(LogLinesStartingWith("CKELMonitorMode::GetIMetroMode OUT"),
            (std::vector<std::string>{"CKELMonitorMode::GetIMetroMode OUT(0x80004003)\r\n",
                                      "CKELMonitorMode::GetIMetroMode OUT(0x80004003)\r\n"}));
}

TEST_F(MonitorMode, AlreadyInitializedApartmentIsUninitializedOnRelease) {
  fake->coInitializeResult = S_FALSE;
  platform::AppVisibility* object = nullptr;
  BOOL needUninitialize = 0;
  EXPECT_EQ(CKELMonitorMode::GetIMetroMode(&object, &needUninitialize), S_OK);
  EXPECT_EQ(needUninitialize, 1);
  CKELMonitorMode::ReleaseIMetroMode(object, needUninitialize);
  EXPECT_EQ(fake->CallsNamed({"CoUninitialize"}).size(), 1u);
}

TEST_F(MonitorMode, OtherInitializationFailuresAreReturnedWithoutCreating) {
  fake->coInitializeResult = E_OUTOFMEMORY;
  platform::AppVisibility* object = nullptr;
  BOOL needUninitialize = 0;
  EXPECT_EQ(CKELMonitorMode::GetIMetroMode(&object, &needUninitialize), E_OUTOFMEMORY);
  EXPECT_TRUE(fake->CallsNamed({"CoCreateInstance"}).empty());
  EXPECT_EQ(CKELMonitorMode::GetIMetroMode(nullptr, &needUninitialize), E_POINTER);
  EXPECT_EQ(CKELMonitorMode::GetIMetroMode(&object, nullptr), E_POINTER);
}

TEST_F(MonitorMode, MonitorModeIsTraced) {
  EnableLog();
  UINT mode = 0;
  (void)CKELMonitorMode::GetMonitorMode(&mode);
  EXPECT_EQ(LogLines(), (std::vector<std::string>{
                            "CKELMonitorMode::GetMonitorMode IN\r\n",
                            "CKELMonitorMode::GetIMetroMode IN\r\n",
                            "CKELMonitorMode::GetIMetroMode OUT(0x00000000)\r\n",
                            "CKELMonitorMode::ReleaseIMetroMode IN\r\n",
                            "CKELMonitorMode::ReleaseIMetroMode OUT\r\n",
                            "CKELMonitorMode::GetMonitorMode OUT(0x00000000)\r\n",
                        }));
}

// Which failures end with the operation's own exit line: a failed creation
// in the switch does; a failed creation in the mode query and a failed first
// launcher query in the switch leave the last word to the lines before them.
struct FailureTraceCase {
  const char* name;
  HRESULT createResult;
  HRESULT launcherResult;
  bool viaSwitch;
  HRESULT expected;
  std::vector<std::string> lines;
};

// Named in test output by its case name rather than its bytes.
void PrintTo(const FailureTraceCase& c, std::ostream* os) { *os << c.name; }

class MonitorModeFailureTrace : public MonitorMode, public ::testing::WithParamInterface<FailureTraceCase> {};

TEST_P(MonitorModeFailureTrace, WritesExactlyTheseLines) {
  const FailureTraceCase& c = GetParam();
  EnableLog();
  fake->createAppVisibilityResult = c.createResult;
  fake->launcherResult = c.launcherResult;
  UINT mode = 7;
  const HRESULT hr = c.viaSwitch ? CKELMonitorMode::SwitchToStartScreen() : CKELMonitorMode::GetMonitorMode(&mode);
  EXPECT_EQ(hr, c.expected);
  EXPECT_EQ(mode, 7u);
  EXPECT_TRUE(fake->inputs.empty());
  EXPECT_EQ(fake->appVisibilityObjectsAlive, 0);
  EXPECT_EQ(LogLines(), c.lines);
}

INSTANTIATE_TEST_SUITE_P(
    MonitorMode, MonitorModeFailureTrace,
    ::testing::Values(
        FailureTraceCase{"ModeQueryCreationFailureHasNoExitLineOfItsOwn",
                         REGDB_E_CLASSNOTREG,
                         S_OK,
                         false,
                         REGDB_E_CLASSNOTREG,
                         {"CKELMonitorMode::GetMonitorMode IN\r\n", "CKELMonitorMode::GetIMetroMode IN\r\n",
                          "CKELMonitorMode::GetIMetroMode OUT(0x80040154)\r\n"}},
        FailureTraceCase{"SwitchCreationFailureIsTracedAsItsExit",
                         REGDB_E_CLASSNOTREG,
                         S_OK,
                         true,
                         REGDB_E_CLASSNOTREG,
                         {"CKELMonitorMode::SwitchToStartScreen IN\r\n", "CKELMonitorMode::GetIMetroMode IN\r\n",
                          "CKELMonitorMode::GetIMetroMode OUT(0x80040154)\r\n",
                          "CKELMonitorMode::SwitchToStartScreen OUT(0x80040154)\r\n"}},
        FailureTraceCase{"SwitchFailedFirstLauncherQueryReleasesWithoutAnExitLine",
                         S_OK,
                         kAccessDenied,
                         true,
                         kAccessDenied,
                         {"CKELMonitorMode::SwitchToStartScreen IN\r\n", "CKELMonitorMode::GetIMetroMode IN\r\n",
                          "CKELMonitorMode::GetIMetroMode OUT(0x00000000)\r\n",
                          "CKELMonitorMode::ReleaseIMetroMode IN\r\n", "CKELMonitorMode::ReleaseIMetroMode OUT\r\n"}}),
    [](const ::testing::TestParamInfo<FailureTraceCase>& info) { return std::string(info.param.name); });

TEST_F(MonitorMode, SwitchPressesTheWindowsKeyAndPollsUntilTheLauncherShows) {
  EnableLog();
  fake->launcherAnswers = {0, 0, 0, 1};
  EXPECT_EQ(CKELMonitorMode::SwitchToStartScreen(), S_OK);
  EXPECT_EQ(fake->inputs.size(), 2u);
  EXPECT_EQ(fake->inputs[0].wVk, 0x5B);
  EXPECT_EQ(fake->CallsNamed({"IsLauncherVisible"}).size(), 4u);
  EXPECT_EQ(fake->Sleeps(), (std::vector<DWORD>{50, 50, 100, 100, 100}));
  EXPECT_EQ(LogLinesStartingWith("launcherVisibility"),
            (std::vector<std::string>{"launcherVisibility = 0 \r\n", "launcherVisibility = 0\r\n",
                                      "launcherVisibility = 0\r\n", "launcherVisibility = 1\r\n"}));
}

TEST_F(MonitorMode, SwitchGivesUpAfterAHundredPollsWithoutFailing) {
  EXPECT_EQ(CKELMonitorMode::SwitchToStartScreen(), S_OK);
  EXPECT_EQ(fake->CallsNamed({"IsLauncherVisible"}).size(), 101u);
  EXPECT_EQ(fake->appVisibilityObjectsAlive, 0);
}

TEST_F(MonitorMode, SwitchPressesTheKeyEvenWhenTheLauncherAlreadyShows) {
  fake->launcherAnswers = {1};
  EXPECT_EQ(CKELMonitorMode::SwitchToStartScreen(), S_OK);
  EXPECT_EQ(fake->inputs.size(), 2u);
  EXPECT_EQ(fake->CallsNamed({"IsLauncherVisible"}).size(), 1u);
}

TEST_F(MonitorMode, SwitchReturnsAFailedFirstQueryWithoutPressing) {
  fake->launcherResult = E_FAIL;
  EXPECT_EQ(CKELMonitorMode::SwitchToStartScreen(), E_FAIL);
  EXPECT_TRUE(fake->inputs.empty());
  EXPECT_EQ(fake->appVisibilityObjectsAlive, 0);
}

TEST_F(MonitorMode, OpenSearchFromTheDesktopSwitchesThenPressesWindowsQ) {
  fake->launcherAnswers = {0, 0, 1};  // monitor mode, switch's first read, first poll
  fake->foregroundSequence = {u"ImmersiveLauncher", u"SearchPane"};
  EXPECT_EQ(CKELMonitorMode::OpenAppSearchUI(), S_OK);
  // Windows key (2 events), then Windows+Q (4 events).
  ASSERT_EQ(fake->inputs.size(), 6u);
  EXPECT_EQ(fake->inputs[0].wVk, 0x5B);
  EXPECT_EQ(fake->inputs[3].wVk, 0x51);
  EXPECT_EQ(fake->Sleeps().back(), 200u);
}

TEST_F(MonitorMode, OpenSearchOnTheStartScreenDoesNotPressTheWindowsKey) {
  fake->launcherAnswers = {1};
  fake->foregroundClass = u"SearchPane";
  EXPECT_EQ(CKELMonitorMode::OpenAppSearchUI(), S_OK);
  ASSERT_EQ(fake->inputs.size(), 4u);
  EXPECT_EQ(fake->inputs[1].wVk, 0x51);
  EXPECT_EQ(fake->Sleeps(), (std::vector<DWORD>{50, 50, 100, 200, 100, 200}));
}

TEST_F(MonitorMode, OpenSearchWithoutMonitorModeStillPressesWindowsQ) {
  fake->createAppVisibilityResult = REGDB_E_CLASSNOTREG;
  fake->foregroundClass = u"SearchPane";
  EXPECT_EQ(CKELMonitorMode::OpenAppSearchUI(), S_OK);
  EXPECT_EQ(fake->inputs.size(), 4u);
}

TEST_F(MonitorMode, OpenSearchFailsAfterTwoHundredPollsButLogsZero) {
  EnableLog();
  fake->launcherAnswers = {1};
  EXPECT_EQ(CKELMonitorMode::OpenAppSearchUI(), E_FAIL);
  EXPECT_EQ(fake->CallsNamed({"GetForegroundWindow"}).size(), 200u);
  EXPECT_EQ(LogLines().back(), "CKELMonitorMode::OpenAppSearchUI OUT(0x00000000)\r\n");
  EXPECT_EQ(fake->Sleeps().back(), 200u);
}

TEST_F(MonitorMode, SearchPaneIsRecognisedByItsExactClassName) {
  fake->foregroundClass = u"SearchPane";
  EXPECT_TRUE(CKELMonitorMode::IsSearchPaneForeground());
  fake->foregroundClass = u"SearchPaneX";
  EXPECT_FALSE(CKELMonitorMode::IsSearchPaneForeground());
  fake->foregroundClass = u"searchpane";
  EXPECT_FALSE(CKELMonitorMode::IsSearchPaneForeground());
  fake->foregroundClass = u"Search";
  EXPECT_FALSE(CKELMonitorMode::IsSearchPaneForeground());
  fake->foregroundClass = u"";
  EXPECT_FALSE(CKELMonitorMode::IsSearchPaneForeground());
}

TEST_F(MonitorMode, ClassNameIsReadIntoA260CharacterBuffer) {
  CKELMonitorMode::IsSearchPaneForeground();
  EXPECT_EQ(fake->CallsNamed({"GetClassName"}).at(0).args, "260");
}

}  // namespace
}  // namespace kel

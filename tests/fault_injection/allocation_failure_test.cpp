// Each scenario runs once to count the library's heap allocations, then once
// more for every n with the n-th of them failing as an exhausted heap does.
// Whatever fails, nothing crashes and nothing is leaked; the exports, the
// narrow bridge and the catalogue answer E_OUTOFMEMORY where they give up,
// the file reader skips the one record it could not build and reads on, the
// browser's registry value is put back, the clipboard is emptied and closed,
// and the app name list file holds either its old or its new complete
// content.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "catalogue/app_name_list.h"
#include "failing_allocations.h"
#include "fault_world.h"
#include "manifest/manifest_reader.h"
#include "shielded_platform.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace kel {
namespace {

using testing::AllocationsUncounted;
using testing::ExpectOldOrCompleteList;
using testing::FailingAllocations;
using testing::kDataFile;
using testing::kMailFolder;
using testing::kOldList;
using testing::kPrograms;
using testing::World;

// The log is on: the trace lines go through the same sweep, and the writer
// (which formats into a fixed buffer) must neither fail nor change a result.
constexpr DWORD kDebugLog = 1;

using Scenario = std::function<void(fakes::FakePlatform&, World&)>;

class AllocationFailure : public ::testing::Test {
 protected:
  ~AllocationFailure() override {
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
  }

  // Runs the scenario with the n-th counted allocation failing, for every n.
  // The library allocates little with the log off, so even under the
  // sanitizers the whole sweep takes well under a second per scenario.
  void ForEveryAllocation(const Scenario& scenario, const Scenario& check) {
    // A first run lets whatever is built once per process be built.
    RunOnce(0, scenario, check, false);
    const long allocations = RunOnce(0, scenario, check);
    ASSERT_FALSE(HasFailure());
    ASSERT_GT(allocations, 0);
    RecordProperty("allocations", static_cast<int>(allocations));
    for (long n = 1; n <= allocations; ++n) {
      SCOPED_TRACE(::testing::Message() << "failing allocation " << n << " of " << allocations);
      RunOnce(n, scenario, check);
      if (HasFailure()) return;
    }
  }

  // One run; gives the number of allocations counted.
  long RunOnce(long failAt, const Scenario& scenario, const Scenario& check, bool countBlocks = true) {
    const long blocksBefore = FailingAllocations::LiveBlocks();
    long counted = 0;
    {
      fakes::ScopedFakePlatform fake;
      World world(*fake, kDebugLog);
      testing::ShieldedPlatform shielded(*fake);
      FailingAllocations::Start(failAt);
      scenario(*fake, world);
      FailingAllocations::Stop();
      counted = FailingAllocations::Counted();
      if (failAt > 0) EXPECT_TRUE(FailingAllocations::Failed());
      testing::EndScenario(*fake);
      check(*fake, world);
      testing::ExpectNothingLeftOpen(*fake, world);
    }
    // A failed expectation keeps its message: the count is only telling
    // when all went well.
    if (countBlocks && !HasFailure())
      EXPECT_EQ(FailingAllocations::LiveBlocks(), blocksBefore) << "blocks left allocated";
    return counted;
  }
};

bool IsOkOrOutOfMemory(HRESULT hr) { return hr == S_OK || hr == E_OUTOFMEMORY; }

std::size_t CallsNamed(const fakes::FakePlatform& fake, const char* name) { return fake.CallsNamed({name}).size(); }

TEST_F(AllocationFailure, InitializeWithAFirstRefreshPassAndSave) {
  HRESULT initialized = S_OK;
  ForEveryAllocation(
      [&](fakes::FakePlatform& fake, World&) {
        {
          AllocationsUncounted setUp;
          fake.AddFile(kDataFile, kOldList);
        }
        initialized = KelInitialize();
        if (Succeeded(initialized)) {
          AllocationsUncounted driving;
          fake.StartThreads();
          fake.WaitForBlockedWaitsOrThreadsToFinish(1);
          fake.GrantTimeouts(1);
          fake.WaitForBlockedWaitsOrThreadsToFinish(2);
        }
      },
      [&](fakes::FakePlatform& fake, World&) {
        EXPECT_PRED1(IsOkOrOutOfMemory, initialized);
        ExpectOldOrCompleteList(fake.FileContent(kDataFile));
      });
}

TEST_F(AllocationFailure, SearchLaunchWithExclusions) {
  std::array<HRESULT, 3> results{};
  ForEveryAllocation(
      [&](fakes::FakePlatform&, World&) {
        // A package of two apps and two shortcuts, all matching "mail" in
        // part; the shortcuts come in as discovery adds them.
        CKELAppNameList& list = ThePackageManager().m_AppNameList;
        WString merge, tool;
        {
          AllocationsUncounted setUp;
          auto* package = new CKELPackage(u"Example.Mail_abc", {1, 0, 0, 0}, 0, 1);
          (void)package->AddApplication(u"Mail Box", u"Mail");
          (void)package->AddApplication(u"Mail Settings", nullptr);
          (void)list.AddMetroPackage(package);
          merge = kPrograms + u"\\Mail Merge.lnk";
          tool = kPrograms + u"\\Tools\\Mail Tool.url";
        }
        results[0] = list.AddDesktopApp(u"Mail Merge", merge.c_str());
        results[1] = list.AddDesktopApp(u"Mail Tool", tool.c_str());
        results[2] = KelLaunchBySearchW(u"mail", 0, 1);
      },
      [&](fakes::FakePlatform& fake, World&) {
        for (HRESULT result : results) EXPECT_PRED1(IsOkOrOutOfMemory, result);
        // Whatever was put on the clipboard has been taken off again.
        EXPECT_EQ(fake.clipboardText, u"");
        EXPECT_EQ(CallsNamed(fake, "OpenClipboard"), CallsNamed(fake, "CloseClipboard"));
      });
}

TEST_F(AllocationFailure, BrowserLaunchesPutTheValuesBack) {
  std::array<HRESULT, 2> results{};
  ForEveryAllocation(
      [&](fakes::FakePlatform& fake, World&) {
        {
          AllocationsUncounted setUp;
          fake.SetDword(kBrowserKey, kAssociationActivationModeValue, 0);
        }
        results[0] = KelLaunchBrowserByProtocolW(u"http://example.invalid/", 1);
        results[1] = KelLaunchIEBySearch(0, 0, 0);
      },
      [&](fakes::FakePlatform& fake, World&) {
        EXPECT_PRED1(IsOkOrOutOfMemory, results[0]);
        EXPECT_PRED1(IsOkOrOutOfMemory, results[1]);
        ASSERT_TRUE(fake.HasValue(kBrowserKey, kAssociationActivationModeValue));
        EXPECT_EQ(fake.DwordValue(kBrowserKey, kAssociationActivationModeValue), 0u);
        EXPECT_FALSE(fake.HasValue(kBrowserKey, kTileImmersiveActivationValue));
        EXPECT_EQ(fake.clipboardText, u"");
        EXPECT_EQ(CallsNamed(fake, "OpenClipboard"), CallsNamed(fake, "CloseClipboard"));
      });
}

TEST_F(AllocationFailure, BothManifestReadings) {
  std::array<HRESULT, 3> results{};
  std::array<std::size_t, 2> apps{};
  ForEveryAllocation(
      [&](fakes::FakePlatform& fake, World& world) {
        for (DWORD setting : {0u, 1u}) {
          std::unique_ptr<CKELPackage> package;
          WString manifest;
          {
            AllocationsUncounted setUp;
            fake.SetDword(kSettingsKey, kManifestReaderSettingValue, setting);
            manifest = kMailFolder + u"\\AppxManifest.xml";
            package = std::make_unique<CKELPackage>(u"Example.Mail_abc", PackageVersion{}, 0, 1);
            package->FullName = u"Example.Mail_1_x86__abc";
            package->Name = u"Example.Mail";
          }
          // The readers hand a failed allocation on to their callers, which
          // answer E_OUTOFMEMORY.
          try {
            results[setting] = CKELManifestReader::AddAppsToPackage(manifest.c_str(), package.get());
          } catch (const std::bad_alloc&) {
            results[setting] = E_OUTOFMEMORY;
          }
          apps[setting] = package->Applications().size();
        }
        char16_t* name = nullptr;
        try {
          results[2] = CKELManifestReader::GetAppDisplayName(&world.mail, &name);
        } catch (const std::bad_alloc&) {
          results[2] = E_OUTOFMEMORY;
        }
        if (name != nullptr) KelReleaseStringW(name);
      },
      [&](fakes::FakePlatform& fake, World&) {
        // An application whose record cannot be made is left out.
        for (int setting : {0, 1}) {
          EXPECT_TRUE(Succeeded(results[setting]) || results[setting] == E_OUTOFMEMORY)
              << "setting " << setting << ": 0x" << std::hex << results[setting];
          EXPECT_LE(apps[setting], 1u);
        }
        EXPECT_PRED1(IsOkOrOutOfMemory, results[2]);
        EXPECT_EQ(CallsNamed(fake, "CoInitializeEx"), CallsNamed(fake, "CoUninitialize"));
      });
}

TEST_F(AllocationFailure, NarrowExports) {
  std::array<HRESULT, 4> results{};
  ForEveryAllocation(
      [&](fakes::FakePlatform&, World&) {
        BOOL installed = 0;
        results[0] = KelIsInstalledA("Example.Mail_abc", &installed);
        results[1] = KelLaunchStoreA("Example.Mail_abc");
        char16_t* name = nullptr;
        results[2] = KelGetAppDisplayNameByPFNW(u"Example.Mail_abc", &name);
        if (name != nullptr) KelReleaseStringW(name);
        results[3] = KelLaunchByAppUserModelIdA("Example.Mail_abc!App");
      },
      [&](fakes::FakePlatform&, World&) {
        for (HRESULT result : results) EXPECT_PRED1(IsOkOrOutOfMemory, result);
      });
}

// --- the catalogue on its own --------------------------------------------------

constexpr char kCatalogueFile[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<Applications>\r\n"
    "  <MetroApps>\r\n"
    "    <Package PackageFamilyName=\"Example.Mail_abc\" Version=\"1.2.3.4\">\r\n"
    "      <MetroApp DisplayName=\"mail box\" ShortName=\"mail\" RubyDisplayName=\"meeru bokkusu\" />\r\n"
    "      <MetroApp DisplayName=\"mail settings\" RubyShortName=\"settei\" />\r\n"
    "    </Package>\r\n"
    "    <Package PackageFamilyName=\"Example.Reader_def\" Version=\"2.0.0.1\" NeedReserve=\"1\" IsInstalled=\"0\">\r\n"
    "      <MetroApp DisplayName=\"reader\" ShortName=\"reader\" />\r\n"
    "    </Package>\r\n"
    "  </MetroApps>\r\n"
    "  <DesktopApps>\r\n"
    "    <DesktopApp DisplayName=\"mail merge\" LnkFileName=\"%ALLUSERSPROFILE%\\Mail Merge.lnk\" "
    "LocalizeName=\"Merge\" RubyDisplayName=\"meeru\" />\r\n"
    "    <DesktopApp DisplayName=\"sample tool\" LnkFileName=\"C:\\Tools\\Sample Tool.lnk\" NeedReserve=\"1\" "
    "IsInstalled=\"0\" IsDualMode=\"1\" />\r\n"
    "  </DesktopApps>\r\n";
const WString kCatalogueFilePath = u"C:\\Data\\AppNameList1.0.4.0.xml";

// One line per record, every field, applications under their package.
std::vector<std::string> Describe(const CKELAppNameList& list) {
  std::vector<std::string> lines;
  for (const auto& package : list.Packages()) {
    const PackageVersion& v = package->Version;
    lines.push_back("package " + fakes::Narrow(package->PackageFamilyName) + " " + std::to_string(v.Major) + "." +
                    std::to_string(v.Minor) + "." + std::to_string(v.Build) + "." + std::to_string(v.Revision) + " " +
                    std::to_string(package->NeedReserve) + std::to_string(package->IsInstalled));
    for (const auto& app : package->Applications()) {
      lines.push_back("  app " + fakes::Narrow(package->PackageFamilyName) + ": " +
                      fakes::Narrow(WString(app->DisplayName())) + "|" + fakes::Narrow(WString(app->ShortName())) +
                      "|" + fakes::Narrow(WString(app->RubyDisplayName())) + "|" +
                      fakes::Narrow(WString(app->RubyShortName())));
    }
  }
  for (const auto& app : list.DesktopApps()) {
    lines.push_back("desktop " + fakes::Narrow(WString(app->DisplayName())) + "|" +
                    fakes::Narrow(WString(app->LnkFileName())) + "|" + fakes::Narrow(WString(app->LocalizeName())) +
                    "|" + fakes::Narrow(WString(app->RubyDisplayName())) + "|" + std::to_string(app->NeedReserve) +
                    std::to_string(app->IsInstalled) + std::to_string(app->IsDualMode));
  }
  return lines;
}

// Whether `part` is `whole` with some lines left out, the rest in order.
bool IsSubsequence(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
  std::size_t at = 0;
  for (const std::string& line : part) {
    while (at < whole.size() && whole[at] != line) ++at;
    if (at == whole.size()) return false;
    ++at;
  }
  return true;
}

// How many records of `whole` are not in `part`; an app left out together
// with its package is not counted apart from it.
int MissingRecords(const std::vector<std::string>& part, const std::vector<std::string>& whole) {
  int missing = 0;
  bool packageMissing = false;
  for (const std::string& line : whole) {
    const bool isApp = line.rfind("  app ", 0) == 0;
    const bool present = std::find(part.begin(), part.end(), line) != part.end();
    if (!isApp) packageMissing = !present && line.rfind("package ", 0) == 0;
    if (!present && !(isApp && packageMissing)) ++missing;
  }
  return missing;
}

TEST_F(AllocationFailure, CatalogueLoadSkipsOnlyWhatItCouldNotBuild) {
  std::vector<std::string> everything;
  HRESULT complete = S_OK;
  {
    fakes::ScopedFakePlatform fake;
    fake->AddFile(kCatalogueFilePath, kCatalogueFile);
    complete = ThePackageManager().m_AppNameList.Load(kCatalogueFilePath.c_str());
    everything = Describe(ThePackageManager().m_AppNameList);
    ThePackageManager().m_AppNameList.Reset();
  }
  ASSERT_EQ(everything.size(), 7u) << ::testing::PrintToString(everything);

  HRESULT loaded = S_OK;
  std::vector<std::string> records;
  ForEveryAllocation(
      [&](fakes::FakePlatform& fake, World&) {
        {
          AllocationsUncounted setUp;
          fake.AddFile(kCatalogueFilePath, kCatalogueFile);
        }
        loaded = ThePackageManager().m_AppNameList.Load(kCatalogueFilePath.c_str());
        AllocationsUncounted looking;
        records = Describe(ThePackageManager().m_AppNameList);
      },
      [&](fakes::FakePlatform&, World&) {
        EXPECT_TRUE(loaded == complete || loaded == E_OUTOFMEMORY) << std::hex << loaded;
        // Records come out whole or not at all, in file order.
        EXPECT_TRUE(IsSubsequence(records, everything)) << ::testing::PrintToString(records);
        // The reader goes on past a record it could not build: at most one
        // is missing (a package with its apps) unless the scan gave up.
        if (loaded != E_OUTOFMEMORY)
          EXPECT_LE(MissingRecords(records, everything), 1) << ::testing::PrintToString(records);
        std::vector<std::string>().swap(records);
      });
}

TEST_F(AllocationFailure, CatalogueSaveLeavesTheOldFileOrAWholeNewOne) {
  const WString savedPath = u"C:\\Data\\Saved.xml";
  std::string whole;
  {
    fakes::ScopedFakePlatform fake;
    fake->AddFile(kCatalogueFilePath, kCatalogueFile);
    (void)ThePackageManager().m_AppNameList.Load(kCatalogueFilePath.c_str());
    ASSERT_EQ(ThePackageManager().m_AppNameList.Save(savedPath.c_str()), S_OK);
    whole = fake->FileContent(savedPath);
    ThePackageManager().m_AppNameList.Reset();
  }
  ASSERT_NE(whole.find("sample tool"), std::string::npos);

  HRESULT saved = S_OK;
  ForEveryAllocation(
      [&](fakes::FakePlatform& fake, World&) {
        {
          AllocationsUncounted setUp;
          fake.AddFile(kCatalogueFilePath, kCatalogueFile);
          fake.AddFile(savedPath, kOldList);
          (void)ThePackageManager().m_AppNameList.Load(kCatalogueFilePath.c_str());
        }
        saved = ThePackageManager().m_AppNameList.Save(savedPath.c_str());
      },
      [&](fakes::FakePlatform& fake, World&) {
        const std::string file = fake.FileContent(savedPath);
        if (saved == S_OK) {
          EXPECT_EQ(file, whole);
        } else {
          EXPECT_EQ(saved, E_OUTOFMEMORY);
          EXPECT_EQ(file, kOldList);
        }
      });
}

// The list on its own, outside any platform: a name that cannot be added
// leaves the list as it was and can be added afterwards.
TEST_F(AllocationFailure, ExclusionListKeepsItsNamesWhenItCannotGrow) {
  for (long n = 1;; ++n) {
    SCOPED_TRACE(::testing::Message() << "failing allocation " << n);
    ExcludeAppNameList list{u"Mail Box", u"Notes"};
    const WString newName = u"Mail Merge";
    const WString repeated = u"MAIL BOX";
    FailingAllocations::Start(n);
    const HRESULT added = AddUniqueName(list, newName);
    const HRESULT again = AddUniqueName(list, repeated);
    FailingAllocations::Stop();
    EXPECT_EQ(again, S_FALSE);
    if (!FailingAllocations::Failed()) {
      EXPECT_EQ(added, S_OK);
      EXPECT_EQ(list, (ExcludeAppNameList{u"Mail Box", u"Notes", u"Mail Merge"}));
      break;
    }
    EXPECT_EQ(added, E_OUTOFMEMORY);
    EXPECT_EQ(list, (ExcludeAppNameList{u"Mail Box", u"Notes"}));
    EXPECT_EQ(list.size(), 2u);
    EXPECT_EQ(AddUniqueName(list, u"mail merge"), S_OK);
    EXPECT_EQ(AddUniqueName(list, u"Mail Merge"), S_FALSE);
    if (HasFailure()) return;
  }
}

TEST_F(AllocationFailure, ExclusionListCopiesWholeOrNotAtAll) {
  const ExcludeAppNameList names{u"Mail Box", u"Notes", u"Mail Merge"};
  for (long n = 1;; ++n) {
    SCOPED_TRACE(::testing::Message() << "failing allocation " << n);
    bool threw = false;
    FailingAllocations::Start(n);
    try {
      ExcludeAppNameList copy(names);
      FailingAllocations::Stop();
      EXPECT_EQ(copy, names);
      EXPECT_EQ(copy.AddUnique(u"NOTES"), S_FALSE);
    } catch (const std::bad_alloc&) {
      FailingAllocations::Stop();
      threw = true;
    }
    EXPECT_EQ(threw, FailingAllocations::Failed());
    if (!threw || HasFailure()) return;
  }
}

}  // namespace
}  // namespace kel

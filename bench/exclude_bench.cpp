// The exclusion list of a word: CKELAppNameList::GetExcludeAppNameList over
// the generated catalogue, every package installed and every shortcut
// present, the log off, against a plain loop that only searches each name
// the catalogue matches for the word.
//
// Each package's installed check goes through the exported KelIsInstalledW
// (settings read, version test, the user's SID, a deployment lookup). The
// main measurement answers those calls at once (QuickPlatform), so it is the
// library's own work; a second one runs on the recording fake as it is, with
// the 2,000 packages deployed for its user and the shortcut files in its file
// system.
#include <benchmark/benchmark.h>

#include "catalogue_data.h"
#include "contest.h"
#include "frame/exports.h"
#include "quick_platform.h"
#include "scoped_platform.h"

namespace kel::bench {
namespace {

// The timed calls, out of line so a profiler can collect them alone.
__attribute__((noinline)) HRESULT TimedExclude(CKELAppNameList& list, ExcludeAppNameList& exclude, BOOL& found) {
  return list.GetExcludeAppNameList(kSearchWord, &exclude, &found);
}

__attribute__((noinline)) std::size_t TimedPlainLoop(const std::vector<WString>& names, std::u16string_view word) {
  std::size_t hits = 0;
  for (const WString& name : names) hits += std::u16string_view(name).find(word) != std::u16string_view::npos;
  return hits;
}

std::vector<std::unique_ptr<fakes::FakePackage>> DeployAll(fakes::FakePlatform& fake) {
  std::vector<std::unique_ptr<fakes::FakePackage>> packages;
  for (const PackageEntry& entry : GeneratedPackages()) {
    packages.push_back(std::make_unique<fakes::FakePackage>(entry.familyName, entry.familyName, entry.familyName,
                                                            entry.version, u"C:\\Program Files\\WindowsApps\\x"));
    fake.deployed.push_back({fake.userSid, packages.back().get()});
  }
  return packages;
}

void ExcludeContest(benchmark::State& state, fakes::FakePlatform& platform) {
  const std::string& bytes = CatalogueFileBytes();
  ScopedPlatform installed(platform);
  platform.AddFile(kFile, bytes);
  CKELAppNameList list;
  (void)list.Load(kFile.c_str());  // ends at the open root; the records are checked by size
  const std::vector<WString>& names = SearchedNames();
  std::size_t excluded = 0, hits = 0;
  Contest(state, 1,
          {{"kelbrook",
            [&](CpuTimer& timer) {
              ExcludeAppNameList exclude;
              BOOL found = 0;
              platform.ClearCalls();
              timer.Start();
              benchmark::DoNotOptimize(TimedExclude(list, exclude, found));
              timer.Stop();
              excluded = exclude.size();
            }},
           {"plain", [&](CpuTimer& timer) {
              timer.Start();
              hits = TimedPlainLoop(names, kSearchWord);
              timer.Stop();
              benchmark::DoNotOptimize(hits);
            }}});
  state.counters["excluded"] = static_cast<double>(excluded);
  state.counters["names"] = static_cast<double>(names.size());
  state.counters["plain_hits"] = static_cast<double>(hits);
}

void BM_Exclude_QuickPlatform(benchmark::State& state) {
  CatalogueFileBytes();  // before any platform is installed
  QuickPlatform quick;
  ExcludeContest(state, quick);
}
BENCHMARK(BM_Exclude_QuickPlatform)->Unit(benchmark::kMillisecond);

void BM_Exclude_RecordingFake(benchmark::State& state) {
  CatalogueFileBytes();
  fakes::FakePlatform fake;
  const auto packages = DeployAll(fake);
  for (const DesktopAppEntry& entry : GeneratedDesktopApps()) fake.AddFile(entry.lnkFileName, "");
  ExcludeContest(state, fake);
}
BENCHMARK(BM_Exclude_RecordingFake)->Unit(benchmark::kMillisecond);

// One installed check, as each package of the exclusion list makes it, on
// either platform (1,000 checks a batch).
void BM_IsInstalled(benchmark::State& state) {
  constexpr int kBatch = 1000;
  QuickPlatform quick;
  fakes::FakePlatform fake;
  const auto packages = DeployAll(fake);
  const WString& name = GeneratedPackages()[kPackages / 2].familyName;
  auto checks = [&](fakes::FakePlatform& platform) {
    return [&](CpuTimer& timer) {
      ScopedPlatform installed(platform);
      platform.ClearCalls();
      timer.Start();
      for (int i = 0; i < kBatch; ++i) {
        BOOL isInstalled = 0;
        benchmark::DoNotOptimize(KelIsInstalledW(name.c_str(), &isInstalled));
        benchmark::DoNotOptimize(isInstalled);
      }
      timer.Stop();
    };
  };
  Contest(state, kBatch, {{"quick", checks(quick)}, {"recording", checks(fake)}});
}
BENCHMARK(BM_IsInstalled)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench

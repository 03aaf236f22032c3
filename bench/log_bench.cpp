// What a trace line costs. With the log off: kel::WriteDebugLog against an
// empty out-of-line call. With the log on: lines per second through a
// platform whose file calls are POSIX calls on a temporary file, against a
// plain C loop making the same calls per line (open, seek to the end, write
// the timestamp, write the message, close).
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "contest.h"
#include "empty_trace.h"
#include "frame/log.h"
#include "posix_file_platform.h"
#include "scoped_platform.h"

namespace kel::bench {
namespace {

// A batch of calls: too short to time one by one.
constexpr int kOffBatch = 1 << 20;
constexpr int kOnBatch = 100;

void BM_TraceOff(benchmark::State& state) {
  fakes::FakePlatform fake;
  ScopedPlatform installed(fake);  // the log starts off
  Contest(state, kOffBatch,
          {{"kelbrook",
            [](CpuTimer& timer) {
              timer.Start();
              for (int i = 0; i < kOffBatch; ++i) benchmark::DoNotOptimize(WriteDebugLog("%S IN\r\n", u"Name"));
              timer.Stop();
            }},
           {"empty", [](CpuTimer& timer) {
              timer.Start();
              for (int i = 0; i < kOffBatch; ++i) benchmark::DoNotOptimize(EmptyTrace("%S IN\r\n", u"Name"));
              timer.Stop();
            }}});
}
BENCHMARK(BM_TraceOff)->Unit(benchmark::kMillisecond);

// The timed calls, out of line so a profiler can collect them alone.
__attribute__((noinline)) int TimedTraceLine() { return WriteDebugLog("%S IN\r\n", u"Name"); }

__attribute__((noinline)) int TimedPlainCLine(const char* path, const platform::SystemTime& t, const char* name) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) return -1;
  lseek(fd, 0, SEEK_END);
  char stamp[64];
  const int stampLength = std::snprintf(stamp, sizeof stamp, "[%04d/%02d/%02d %02d:%02d:%02d.%03d]", t.wYear, t.wMonth,
                                        t.wDay, t.wHour, t.wMinute, t.wSecond, t.wMilliseconds);
  benchmark::DoNotOptimize(write(fd, stamp, static_cast<std::size_t>(stampLength)));
  char message[1024];
  const int messageLength = std::snprintf(message, sizeof message, "%s IN\r\n", name);
  benchmark::DoNotOptimize(write(fd, message, static_cast<std::size_t>(messageLength)));
  return close(fd);
}

// The temporary files go when the benchmark ends.
struct TemporaryFile {
  std::string path = TemporaryPath("kel-bench-log");
  ~TemporaryFile() { ::unlink(path.c_str()); }
};

void BM_TraceOn(benchmark::State& state) {
  TemporaryFile ours, theirs;
  PosixFilePlatform posix(ours.path);
  ScopedPlatform installed(posix);
  if (!MakeLogFilePath()) {
    state.SkipWithError("no log path");
    return;
  }
  const platform::SystemTime t = posix.GetLocalTime();  // the timestamp both write
  g_bLogEnabled.store(1);
  Contest(state, kOnBatch,
          {{"kelbrook",
            [](CpuTimer& timer) {
              timer.Start();
              for (int i = 0; i < kOnBatch; ++i) benchmark::DoNotOptimize(TimedTraceLine());
              timer.Stop();
            }},
           {"plainc", [&](CpuTimer& timer) {
              timer.Start();
              for (int i = 0; i < kOnBatch; ++i)
                benchmark::DoNotOptimize(TimedPlainCLine(theirs.path.c_str(), t, "Name"));
              timer.Stop();
            }}});
  g_bLogEnabled.store(0);
}
BENCHMARK(BM_TraceOn)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench

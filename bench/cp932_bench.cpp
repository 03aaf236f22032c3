// Shift JIS: kel::cp932::MultiByteToWide on 1 MiB of mixed Japanese and
// ASCII text against glibc's iconv from CP932 to UTF-16LE. Both results are
// compared once, unit for unit, before anything is timed.
#include <benchmark/benchmark.h>
#include <iconv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "contest.h"
#include "text/cp932/cp932.h"

namespace kel::bench {
namespace {

constexpr std::size_t kTextBytes = 1 << 20;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "cp932 set-up: %s\n", what);
  std::abort();
}

std::string Convert(const char* to, const char* from, const std::string& text) {
  iconv_t cd = iconv_open(to, from);
  if (cd == reinterpret_cast<iconv_t>(-1)) Fail("iconv_open");
  std::string out(text.size() * 4 + 16, '\0');
  char* in = const_cast<char*>(text.data());
  std::size_t inLeft = text.size();
  char* outAt = out.data();
  std::size_t outLeft = out.size();
  if (iconv(cd, &in, &inLeft, &outAt, &outLeft) == static_cast<std::size_t>(-1)) Fail("iconv conversion");
  iconv_close(cd);
  out.resize(out.size() - outLeft);
  return out;
}

// Pieces of the kind a launcher sees: app names, folder paths, sentences of
// kanji and kana, half-width katakana, ASCII words and digits. Each piece is
// whole characters, so cutting between pieces never splits a pair.
std::vector<std::string> Pieces() {
  const char* utf8[] = {
      "検索ウィンドウにアプリ名を入力してください。",
      "Photo Editor 2013 ",
      "写真エディター",
      "C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs\\",
      "ｱﾌﾟﾘｹｰｼｮﾝ ",
      "音楽プレーヤーで再生中の曲：",
      "Kelbrook 1.0.4.0 (x86) ",
      "ストアアプリの一覧を更新しました。",
      "①②③ ㈱ ＡＢＣ１２３ ",
      "予定表・メール・天気・地図、",
      "user@example.jp, tel 03-1234-5678\r\n",
      "漢字仮名交じり文の変換速度を測ります。",
  };
  std::vector<std::string> pieces;
  for (const char* piece : utf8) pieces.push_back(Convert("CP932", "UTF-8", piece));
  return pieces;
}

const std::string& Text() {
  static const std::string kText = [] {
    const std::vector<std::string> pieces = Pieces();
    std::string out;
    for (std::size_t i = 0;; ++i) {
      const std::string& piece = pieces[(i * 5) % pieces.size()];
      if (out.size() + piece.size() > kTextBytes) break;
      out += piece;
    }
    out.resize(kTextBytes, ' ');
    return out;
  }();
  return kText;
}

// The library's result and iconv's are the same code units.
void CheckAgreement() {
  static const bool kChecked = [] {
    const std::string& text = Text();
    std::u16string ours(text.size(), u'\0');
    const int n =
        cp932::MultiByteToWide(text.data(), static_cast<int>(text.size()), ours.data(), static_cast<int>(ours.size()));
    if (n <= 0) Fail("MultiByteToWide failed");
    ours.resize(static_cast<std::size_t>(n));
    const std::string theirs = Convert("UTF-16LE", "CP932", text);
    if (theirs.size() != ours.size() * 2 || std::memcmp(theirs.data(), ours.data(), theirs.size()) != 0) {
      Fail("MultiByteToWide and iconv disagree");
    }
    return true;
  }();
  (void)kChecked;
}

// The timed calls, out of line so a profiler can collect them alone.
__attribute__((noinline)) int TimedCp932(const std::string& text, std::u16string& out) {
  return cp932::MultiByteToWide(text.data(), static_cast<int>(text.size()), out.data(), static_cast<int>(out.size()));
}

__attribute__((noinline)) std::size_t TimedIconv(iconv_t cd, const std::string& text, std::u16string& out) {
  iconv(cd, nullptr, nullptr, nullptr, nullptr);
  char* in = const_cast<char*>(text.data());
  std::size_t inLeft = text.size();
  char* outAt = reinterpret_cast<char*>(out.data());
  std::size_t outLeft = out.size() * 2;
  iconv(cd, &in, &inLeft, &outAt, &outLeft);
  return (out.size() * 2 - outLeft) / 2;
}

void BM_Cp932(benchmark::State& state) {
  CheckAgreement();
  const std::string& text = Text();
  std::u16string ours(text.size(), u'\0');
  std::u16string theirs(text.size(), u'\0');
  iconv_t cd = iconv_open("UTF-16LE", "CP932");
  if (cd == reinterpret_cast<iconv_t>(-1)) Fail("iconv_open");
  int units = 0;
  std::size_t iconvUnits = 0;
  Contest(state, 1,
          {{"kelbrook",
            [&](CpuTimer& timer) {
              timer.Start();
              units = TimedCp932(text, ours);
              timer.Stop();
              benchmark::DoNotOptimize(ours.data());
            }},
           {"iconv", [&](CpuTimer& timer) {
              timer.Start();
              iconvUnits = TimedIconv(cd, text, theirs);
              timer.Stop();
              benchmark::DoNotOptimize(theirs.data());
            }}});
  iconv_close(cd);
  state.counters["units"] = units;
  state.counters["iconv_units"] = static_cast<double>(iconvUnits);
  state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_Cp932)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench

// The reader on documents built to be costly, each against the reader on a
// plain document of the same size: the catalogue file's own form, cut to
// that size. A reader whose work grows faster than its input shows it here
// as a ratio that grows with the document; a linear one stays within a small
// factor of the plain document.
//
//   namespaces:  30,000 prefixes declared on the root, a child using each;
//                also against the same document with every colon made an
//                underscore (the same elements and attributes, no prefix),
//                which leaves the namespace bookkeeping alone in the ratio
//   attributes:  one element with 82,888 attributes
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "catalogue_data.h"
#include "contest.h"
#include "text/xml/xml_reader.h"

namespace kel::bench {
namespace {

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "reader set-up: %s\n", what);
  std::abort();
}

struct WalkResult {
  std::size_t nodes = 0;
  HRESULT end = S_OK;
};

// Every node and every attribute, its local name, prefix and value asked
// for, as a reader's user does.
__attribute__((noinline)) WalkResult TimedReaderWalk(xml::XmlReader& reader, const std::string& bytes) {
  WalkResult result;
  (void)reader.SetInput(bytes);
  const char16_t* text = nullptr;
  UINT length = 0;
  xml::XmlNodeType type = xml::XmlNodeType_None;
  while ((result.end = reader.Read(&type)) == S_OK) {
    ++result.nodes;
    (void)reader.GetLocalName(&text, &length);
    (void)reader.GetPrefix(&text, &length);
    (void)reader.GetValue(&text, &length);
    benchmark::DoNotOptimize(text);
    if (type != xml::XmlNodeType_Element) continue;
    for (HRESULT move = reader.MoveToFirstAttribute(); move == S_OK; move = reader.MoveToNextAttribute()) {
      (void)reader.GetLocalName(&text, &length);
      (void)reader.GetValue(&text, &length);
      benchmark::DoNotOptimize(text);
    }
    (void)reader.MoveToElement();
  }
  return result;
}

const std::string& NamespacesDocument() {
  static const std::string kDocument = [] {
    std::string out = "<r";
    for (int i = 0; i < 30000; ++i) out += " xmlns:p" + std::to_string(i) + "='u'";
    out += ">";
    for (int i = 0; i < 30000; ++i) out += "<p" + std::to_string(i) + ":e/>";
    return out + "</r>";
  }();
  return kDocument;
}

const std::string& UnprefixedDocument() {
  static const std::string kDocument = [] {
    std::string out = NamespacesDocument();
    for (char& c : out) {
      if (c == ':') c = '_';
    }
    return out;
  }();
  return kDocument;
}

const std::string& AttributesDocument() {
  static const std::string kDocument = [] {
    const std::size_t size = NamespacesDocument().size();
    std::string out = "<r";
    for (int i = 0; out.size() + 16 < size; ++i) out += " a" + std::to_string(i) + "=''";
    out += "/>";
    out.resize(size, ' ');
    return out;
  }();
  return kDocument;
}

// The catalogue file up to the last whole line that fits in `size` bytes,
// padded with spaces to exactly that size. Its root stays open, as in every
// file the library writes, so the walk ends in MX_E_INPUTEND.
std::string PlainDocument(std::size_t size) {
  const std::string& file = CatalogueFileBytes();
  if (file.size() < size) Fail("the catalogue file is smaller than the document to match");
  std::string out = file.substr(0, file.rfind('\n', size - 1) + 1);
  out.resize(size, ' ');
  return out;
}

// A contestant walking `document` with a reader of its own, as the library
// makes one per file.
Contestant Walker(const char* name, const std::string& document, WalkResult& result) {
  return {name, [&document, &result](CpuTimer& timer) {
            xml::XmlReader reader;
            timer.Start();
            result = TimedReaderWalk(reader, document);
            timer.Stop();
          }};
}

void ReaderContest(benchmark::State& state, const std::string& hostile, const std::string* unprefixed) {
  const std::string plain = PlainDocument(hostile.size());
  xml::XmlReader check;
  if (TimedReaderWalk(check, hostile).end != S_FALSE) Fail("the costly document does not end as expected");
  if (TimedReaderWalk(check, plain).end != xml::MX_E_INPUTEND) Fail("the plain document does not end as expected");
  WalkResult hostileWalk, plainWalk, unprefixedWalk;
  std::vector<Contestant> contestants = {Walker("hostile", hostile, hostileWalk), Walker("plain", plain, plainWalk)};
  if (unprefixed != nullptr) {
    const WalkResult walk = TimedReaderWalk(check, *unprefixed);
    if (walk.end != S_FALSE || walk.nodes != TimedReaderWalk(check, hostile).nodes) {
      Fail("the unprefixed document does not read as the costly one does");
    }
    contestants.push_back(Walker("unprefixed", *unprefixed, unprefixedWalk));
  }
  Contest(state, 1, std::move(contestants));
  state.counters["bytes"] = static_cast<double>(hostile.size());
  state.counters["hostile_nodes"] = static_cast<double>(hostileWalk.nodes);
  state.counters["plain_nodes"] = static_cast<double>(plainWalk.nodes);
}

void BM_Reader_Namespaces(benchmark::State& state) {
  ReaderContest(state, NamespacesDocument(), &UnprefixedDocument());
}
BENCHMARK(BM_Reader_Namespaces)->Unit(benchmark::kMillisecond);

void BM_Reader_Attributes(benchmark::State& state) { ReaderContest(state, AttributesDocument(), nullptr); }
BENCHMARK(BM_Reader_Attributes)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench

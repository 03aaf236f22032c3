// The catalogue file: CKELAppNameList::Load against libxml2's pull reader
// walking every node and attribute and against pugixml building its tree,
// and CKELAppNameList::Save against libxml2's writer producing the same
// elements and attributes. Everything works from memory: the library reads
// and writes a fake platform's in-memory file, the peers get the same bytes
// (or the same records, as UTF-8) from memory. The log is off.
//
// The load is measured twice: on the recording fake as it is, and on
// QuickPlatform, which answers the shortcut paths' expansion without the
// fake's bookkeeping (recording each call's arguments), so that second
// measurement is the library's own work.
#include <benchmark/benchmark.h>
#include <libxml/xmlreader.h>
#include <libxml/xmlwriter.h>

#include <cstdio>
#include <initializer_list>
#include <pugixml.hpp>

#include "catalogue_data.h"
#include "contest.h"
#include "frame/format.h"
#include "quick_platform.h"
#include "scoped_platform.h"

namespace kel::bench {
namespace {

// The timed calls, each out of line so a profiler can collect it alone
// (valgrind --tool=callgrind --toggle-collect='*TimedLoad*', for one).

__attribute__((noinline)) HRESULT TimedLoad(CKELAppNameList& list) { return list.Load(kFile.c_str()); }

// Every node and every attribute, its local name and value asked for.
__attribute__((noinline)) std::size_t TimedLibxml2Walk(const std::string& bytes) {
  xmlTextReaderPtr reader = xmlReaderForMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr,
                                               XML_PARSE_NOERROR | XML_PARSE_NOWARNING | XML_PARSE_NONET);
  std::size_t elements = 0;
  while (xmlTextReaderRead(reader) == 1) {
    benchmark::DoNotOptimize(xmlTextReaderConstLocalName(reader));
    benchmark::DoNotOptimize(xmlTextReaderConstValue(reader));
    if (xmlTextReaderNodeType(reader) == XML_READER_TYPE_ELEMENT) ++elements;
    if (xmlTextReaderMoveToFirstAttribute(reader) == 1) {
      do {
        benchmark::DoNotOptimize(xmlTextReaderConstLocalName(reader));
        benchmark::DoNotOptimize(xmlTextReaderConstValue(reader));
      } while (xmlTextReaderMoveToNextAttribute(reader) == 1);
      xmlTextReaderMoveToElement(reader);
    }
  }
  xmlFreeTextReader(reader);
  return elements;
}

__attribute__((noinline)) pugi::xml_parse_status TimedPugixmlParse(pugi::xml_document& document,
                                                                   const std::string& bytes) {
  return document.load_buffer(bytes.data(), bytes.size()).status;
}

__attribute__((noinline)) HRESULT TimedSave(CKELAppNameList& list) { return list.Save(kSavedFile.c_str()); }

// The peer's records: the same values, in its own string form (UTF-8).
struct Utf8Records {
  struct App {
    std::string displayName, shortName, rubyDisplayName;
  };
  struct Package {
    std::string familyName;
    PackageVersion version;
    std::vector<App> apps;
  };
  struct DesktopApp {
    std::string displayName, lnkFileName, localizeName;
  };
  std::vector<Package> packages;
  std::vector<DesktopApp> desktopApps;
};

const Utf8Records& PeerRecords() {
  static const Utf8Records kRecords = [] {
    Utf8Records out;
    for (const PackageEntry& entry : GeneratedPackages()) {
      Utf8Records::Package package{ToUtf8(entry.familyName), entry.version, {}};
      for (const MetroAppEntry& app : entry.apps) {
        package.apps.push_back({ToUtf8(app.displayName), ToUtf8(app.shortName), ToUtf8(app.rubyDisplayName)});
      }
      out.packages.push_back(std::move(package));
    }
    for (const DesktopAppEntry& app : GeneratedDesktopApps()) {
      out.desktopApps.push_back({ToUtf8(app.displayName), ToUtf8(app.lnkFileName), ToUtf8(app.localizeName)});
    }
    return out;
  }();
  return kRecords;
}

void WriteAttribute(xmlTextWriterPtr writer, const char* name, const std::string& value) {
  if (!value.empty()) xmlTextWriterWriteAttribute(writer, BAD_CAST name, BAD_CAST value.c_str());
}

struct Utf8Attribute {
  const char* name;
  const std::string& value;
};

// An element with its attributes and no content.
void WriteEmptyElement(xmlTextWriterPtr writer, const char* name, std::initializer_list<Utf8Attribute> attributes) {
  xmlTextWriterStartElement(writer, BAD_CAST name);
  for (const Utf8Attribute& attribute : attributes) WriteAttribute(writer, attribute.name, attribute.value);
  xmlTextWriterEndElement(writer);
}

void WriteMetroApp(xmlTextWriterPtr writer, const Utf8Records::App& app) {
  WriteEmptyElement(
      writer, "MetroApp",
      {{"DisplayName", app.displayName}, {"ShortName", app.shortName}, {"RubyDisplayName", app.rubyDisplayName}});
}

void WriteDesktopApp(xmlTextWriterPtr writer, const Utf8Records::DesktopApp& app) {
  WriteEmptyElement(
      writer, "DesktopApp",
      {{"DisplayName", app.displayName}, {"LnkFileName", app.lnkFileName}, {"LocalizeName", app.localizeName}});
}

// The same elements and attributes, indented two spaces, into memory.
__attribute__((noinline)) std::size_t TimedLibxml2Write(const Utf8Records& records) {
  xmlBufferPtr buffer = xmlBufferCreate();
  xmlTextWriterPtr writer = xmlNewTextWriterMemory(buffer, 0);
  xmlTextWriterSetIndent(writer, 1);
  xmlTextWriterSetIndentString(writer, BAD_CAST "  ");
  xmlTextWriterStartDocument(writer, nullptr, "UTF-8", nullptr);
  xmlTextWriterStartElement(writer, BAD_CAST "Applications");
  xmlTextWriterStartElement(writer, BAD_CAST "MetroApps");
  char version[32];
  for (const auto& package : records.packages) {
    xmlTextWriterStartElement(writer, BAD_CAST "Package");
    WriteAttribute(writer, "PackageFamilyName", package.familyName);
    std::snprintf(version, sizeof version, "%d.%d.%d.%d", package.version.Major, package.version.Minor,
                  package.version.Build, package.version.Revision);
    xmlTextWriterWriteAttribute(writer, BAD_CAST "Version", BAD_CAST version);
    for (const auto& app : package.apps) WriteMetroApp(writer, app);
    xmlTextWriterEndElement(writer);
  }
  xmlTextWriterEndElement(writer);
  xmlTextWriterStartElement(writer, BAD_CAST "DesktopApps");
  for (const auto& app : records.desktopApps) WriteDesktopApp(writer, app);
  xmlTextWriterEndElement(writer);
  xmlTextWriterEndDocument(writer);
  xmlFreeTextWriter(writer);
  const auto written = static_cast<std::size_t>(xmlBufferLength(buffer));
  xmlBufferFree(buffer);
  return written;
}

// Errors of the peers (the file's root is never closed) stay quiet.
void Quiet(void*, const char*, ...) {}
void QuietStructured(void*, xmlErrorPtr) {}

void QuietLibxml2() {
  xmlInitParser();
  xmlSetGenericErrorFunc(nullptr, Quiet);
  xmlSetStructuredErrorFunc(nullptr, QuietStructured);
}

// --- load ------------------------------------------------------------------

// The library's load on `platform`, holding the file; a fresh catalogue for
// each call, made and destroyed outside the timed part.
Contestant KelbrookLoad(fakes::FakePlatform& platform, std::size_t& records) {
  return {"kelbrook", [&platform, &records](CpuTimer& timer) {
            auto list = std::make_unique<CKELAppNameList>();
            platform.ClearCalls();
            timer.Start();
            benchmark::DoNotOptimize(TimedLoad(*list));
            timer.Stop();
            records = list->Packages().size() + list->DesktopApps().size();
          }};
}

void LoadContest(benchmark::State& state, fakes::FakePlatform& platform) {
  const std::string& bytes = CatalogueFileBytes();
  QuietLibxml2();
  ScopedPlatform installed(platform);
  platform.AddFile(kFile, bytes);
  std::size_t records = 0, elements = 0;
  pugi::xml_document document;
  Contest(state, 1,
          {KelbrookLoad(platform, records),
           {"libxml2",
            [&](CpuTimer& timer) {
              timer.Start();
              elements = TimedLibxml2Walk(bytes);
              timer.Stop();
            }},
           {"pugixml", [&](CpuTimer& timer) {
              timer.Start();
              benchmark::DoNotOptimize(TimedPugixmlParse(document, bytes));
              timer.Stop();
            }}});
  state.counters["records"] = static_cast<double>(records);
  state.counters["elements"] = static_cast<double>(elements);
}

void BM_Load_RecordingFake(benchmark::State& state) {
  CatalogueFileBytes();  // before any platform is installed
  fakes::FakePlatform fake;
  LoadContest(state, fake);
}
BENCHMARK(BM_Load_RecordingFake)->Unit(benchmark::kMillisecond);

void BM_Load_QuickPlatform(benchmark::State& state) {
  CatalogueFileBytes();
  QuickPlatform quick;
  LoadContest(state, quick);
}
BENCHMARK(BM_Load_QuickPlatform)->Unit(benchmark::kMillisecond);

// --- save ------------------------------------------------------------------

void BM_Save(benchmark::State& state) {
  const std::string& bytes = CatalogueFileBytes();
  fakes::ScopedFakePlatform fake;
  fake->AddFile(kFile, bytes);
  CKELAppNameList list;
  (void)list.Load(kFile.c_str());  // ends at the open root; the records are checked by size
  const Utf8Records& records = PeerRecords();
  std::size_t ours = 0, theirs = 0;
  Contest(state, 1,
          {{"kelbrook",
            [&](CpuTimer& timer) {
              fake->ClearCalls();
              timer.Start();
              benchmark::DoNotOptimize(TimedSave(list));
              timer.Stop();
            }},
           {"libxml2", [&](CpuTimer& timer) {
              timer.Start();
              theirs = TimedLibxml2Write(records);
              timer.Stop();
            }}});
  ours = fake->FileContent(kSavedFile).size();
  state.counters["kelbrook_bytes"] = static_cast<double>(ours);
  state.counters["libxml2_bytes"] = static_cast<double>(theirs);
}
BENCHMARK(BM_Save)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kel::bench

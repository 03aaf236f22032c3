#include "catalogue_data.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "frame/format.h"
#include "frame/log.h"

namespace kel::bench {
namespace {

WString Wide(std::string_view ascii) { return WString(ascii.begin(), ascii.end()); }
WString Number(int value) { return Wide(std::to_string(value)); }

WString Lowered(WString text) {
  LowerInPlace(text);
  return text;
}

// Names of the kind a PC's Start menu and Store apps carry.
constexpr const char* kWords[] = {"Photo",  "Music",    "Video",   "Mail",   "Calendar", "Notes",   "Paint",
                                  "Backup", "Scanner",  "Player",  "Reader", "Editor",   "Manager", "Studio",
                                  "Viewer", "Recorder", "Weather", "Maps",   "Camera",   "Browser"};
constexpr const char* kKinds[] = {"App", "Tool", "Suite", "Pro", "Lite"};
const WString kJapaneseWords[] = {u"写真",       u"音楽",       u"動画",         u"メール",     u"予定表",
                                  u"メモ",       u"お絵かき",   u"バックアップ", u"スキャナー", u"プレーヤー",
                                  u"リーダー",   u"エディター", u"マネージャー", u"スタジオ",   u"ビューアー",
                                  u"レコーダー", u"天気",       u"地図",         u"カメラ",     u"ブラウザー"};
const WString kJapaneseKinds[] = {u"アプリ", u"ツール", u"スイート", u"プロ", u"ライト"};
const WString kPublishers[] = {u"8wekyb3d8bbwe", u"cw5n1h2txyewy", u"k1x2p7q9r3s4t", u"a5b6c7d8e9f0g"};
const WString kPrograms = u"C:\\ProgramData\\Microsoft\\Windows\\Start Menu\\Programs";

std::vector<PackageEntry> MakePackages() {
  std::vector<PackageEntry> packages(kPackages);
  for (int p = 0; p < kPackages; ++p) {
    PackageEntry& entry = packages[p];
    const int word = (p * 7) % 20;
    const int kind = p % 5;
    const WString plain = Wide(kWords[word]) + u" " + Wide(kKinds[kind]) + u" " + Number(p);
    entry.familyName = u"Vendor" + Number(p % 500) + u"." + Wide(kWords[word]) + Wide(kKinds[kind]) + Number(p) + u"_" +
                       kPublishers[p % 4];
    entry.version.Major = static_cast<WORD>(1 + p % 9);
    entry.version.Minor = static_cast<WORD>(p % 10);
    entry.version.Build = static_cast<WORD>(1000 + p);
    entry.version.Revision = 0;
    entry.apps[0].displayName = Lowered(plain);
    entry.apps[0].shortName = Lowered(Wide(kWords[word]) + u" " + Number(p));
    if (p % 4 == 1) entry.apps[0].rubyDisplayName = kJapaneseWords[word] + kJapaneseKinds[kind];
    entry.apps[1].displayName = Lowered(plain + u" Companion");
    entry.apps[1].shortName = Lowered(u"Companion " + Number(p));
  }
  return packages;
}

std::vector<DesktopAppEntry> MakeDesktopApps() {
  std::vector<DesktopAppEntry> apps(kDesktopApps);
  for (int i = 0; i < kDesktopApps; ++i) {
    DesktopAppEntry& entry = apps[i];
    const int word = i % 20;
    const int kind = (i / 20) % 5;
    const WString display = Wide(kWords[word]) + u" " + Wide(kKinds[kind]) + u" " + Number(i);
    entry.displayName = Lowered(display);
    entry.lnkFileName = kPrograms + u"\\Vendor " + Number(i % 500);
    entry.lnkFileName += u"\\" + display + u".lnk";
    if (i % 4 == 3) entry.localizeName = kJapaneseWords[word] + kJapaneseKinds[kind] + u" " + Number(i);
  }
  return apps;
}

void Attribute(std::string& out, const char* name, const WString& value) {
  if (value.empty()) return;
  out += ' ';
  out += name;
  out += "=\"";
  out += ToUtf8(value);  // the generated names need no escaping
  out += '"';
}

struct NamedText {
  const char* name;
  const WString& value;
};

// An element with its attributes and no content, on a line of its own.
void EmptyElement(std::string& out, const char* lineAndName, std::initializer_list<NamedText> attributes) {
  out += lineAndName;
  for (const NamedText& attribute : attributes) Attribute(out, attribute.name, attribute.value);
  out += " />";
}

// The file as the library's writer lays it out: byte order mark, CRLF line
// ends, two spaces per level, the root left open.
std::string MakeFile() {
  std::string out = "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<Applications>\r\n  <MetroApps>";
  for (const PackageEntry& package : GeneratedPackages()) {
    out += "\r\n    <Package";
    Attribute(out, "PackageFamilyName", package.familyName);
    Attribute(out, "Version",
              FormatWide(u"%d.%d.%d.%d", {package.version.Major, package.version.Minor, package.version.Build,
                                          package.version.Revision}));
    out += '>';
    for (const MetroAppEntry& app : package.apps) {
      EmptyElement(
          out, "\r\n      <MetroApp",
          {{"DisplayName", app.displayName}, {"ShortName", app.shortName}, {"RubyDisplayName", app.rubyDisplayName}});
    }
    out += "\r\n    </Package>";
  }
  out += "\r\n  </MetroApps>\r\n  <DesktopApps>";
  for (const DesktopAppEntry& app : GeneratedDesktopApps()) {
    EmptyElement(
        out, "\r\n    <DesktopApp",
        {{"DisplayName", app.displayName}, {"LnkFileName", app.lnkFileName}, {"LocalizeName", app.localizeName}});
  }
  out += "\r\n  </DesktopApps>";
  return out;
}

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "bench set-up: %s\n", what);
  std::abort();
}

// Loads the text and saves it again: the same bytes come back, so the text
// is in the library's own form, and every record was read.
void CheckRoundTrip(const std::string& bytes) {
  fakes::ScopedFakePlatform fake;
  fake->AddFile(kFile, bytes);
  CKELAppNameList list;
  (void)list.Load(kFile.c_str());  // ends at the open root; the records are checked by size
  if (list.Packages().size() != static_cast<std::size_t>(kPackages) ||
      list.DesktopApps().size() != static_cast<std::size_t>(kDesktopApps)) {
    Fail("the generated file does not load in full");
  }
  if (list.Save(kSavedFile.c_str()) != S_OK) Fail("saving the loaded catalogue failed");
  if (fake->FileContent(kSavedFile) != bytes) Fail("the generated file is not in the form Save writes");
}

}  // namespace

const std::vector<PackageEntry>& GeneratedPackages() {
  static const std::vector<PackageEntry> kPackages = MakePackages();
  return kPackages;
}

const std::vector<DesktopAppEntry>& GeneratedDesktopApps() {
  static const std::vector<DesktopAppEntry> kApps = MakeDesktopApps();
  return kApps;
}

const std::string& CatalogueFileBytes() {
  static const std::string kBytes = [] {
    std::string made = MakeFile();
    CheckRoundTrip(made);
    return made;
  }();
  return kBytes;
}

const std::vector<WString>& SearchedNames() {
  static const std::vector<WString> kNames = [] {
    std::vector<WString> out;
    for (const PackageEntry& package : GeneratedPackages()) {
      for (const MetroAppEntry& app : package.apps) {
        out.push_back(app.displayName);
        if (!app.shortName.empty()) out.push_back(app.shortName);
        if (!app.rubyDisplayName.empty()) out.push_back(Lowered(app.rubyDisplayName));
      }
    }
    for (const DesktopAppEntry& app : GeneratedDesktopApps()) {
      out.push_back(app.localizeName.empty() ? app.displayName : Lowered(app.localizeName));
    }
    return out;
  }();
  return kNames;
}

std::size_t StoredStringBytes(const CKELAppNameList& list) {
  std::size_t total = 0;
  auto add = [&](std::u16string_view text) {
    if (!text.empty()) total += (text.size() + 1) * sizeof(char16_t);
  };
  for (const auto& package : list.Packages()) {
    add(package->PackageFamilyName);
    add(package->FullName);
    add(package->Name);
    for (const auto& app : package->Applications()) {
      add(app->DisplayName());
      add(app->RubyDisplayName());
      add(app->ShortName());
      add(app->RubyShortName());
    }
  }
  for (const auto& app : list.DesktopApps()) {
    add(app->DisplayName());
    add(app->RubyDisplayName());
    add(app->LocalizeName());
    add(app->LnkFileName());
  }
  return total;
}

}  // namespace kel::bench

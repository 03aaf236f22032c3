#include "bench_support.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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
constexpr const char* kWords[] = {"Photo",  "Music",   "Video",   "Mail",    "Calendar", "Notes",   "Paint",
                                  "Backup", "Scanner", "Player",  "Reader",  "Editor",   "Manager", "Studio",
                                  "Viewer", "Recorder", "Weather", "Maps",   "Camera",   "Browser"};
constexpr const char* kKinds[] = {"App", "Tool", "Suite", "Pro", "Lite"};
const WString kJapaneseWords[] = {u"写真", u"音楽", u"動画", u"メール", u"予定表", u"メモ", u"お絵かき",
                                  u"バックアップ", u"スキャナー", u"プレーヤー", u"リーダー", u"エディター",
                                  u"マネージャー", u"スタジオ", u"ビューアー", u"レコーダー", u"天気", u"地図",
                                  u"カメラ", u"ブラウザー"};
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
    entry.lnkFileName = kPrograms + u"\\Vendor " + Number(i % 500) + u"\\" + display + u".lnk";
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
      out += "\r\n      <MetroApp";
      Attribute(out, "DisplayName", app.displayName);
      Attribute(out, "ShortName", app.shortName);
      Attribute(out, "RubyDisplayName", app.rubyDisplayName);
      out += " />";
    }
    out += "\r\n    </Package>";
  }
  out += "\r\n  </MetroApps>\r\n  <DesktopApps>";
  for (const DesktopAppEntry& app : GeneratedDesktopApps()) {
    out += "\r\n    <DesktopApp";
    Attribute(out, "DisplayName", app.displayName);
    Attribute(out, "LnkFileName", app.lnkFileName);
    Attribute(out, "LocalizeName", app.localizeName);
    out += " />";
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
  list.Load(kFile.c_str());
  if (list.Packages().size() != static_cast<std::size_t>(kPackages) ||
      list.DesktopApps().size() != static_cast<std::size_t>(kDesktopApps)) {
    Fail("the generated file does not load in full");
  }
  if (list.Save(kSavedFile.c_str()) != S_OK) Fail("saving the loaded catalogue failed");
  if (fake->FileContent(kSavedFile) != bytes) Fail("the generated file is not in the form Save writes");
}

}  // namespace

const std::vector<PackageEntry>& GeneratedPackages() {
  static const std::vector<PackageEntry> packages = MakePackages();
  return packages;
}

const std::vector<DesktopAppEntry>& GeneratedDesktopApps() {
  static const std::vector<DesktopAppEntry> apps = MakeDesktopApps();
  return apps;
}

const std::string& CatalogueFileBytes() {
  static const std::string bytes = [] {
    std::string made = MakeFile();
    CheckRoundTrip(made);
    return made;
  }();
  return bytes;
}

const std::vector<WString>& SearchedNames() {
  static const std::vector<WString> names = [] {
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
  return names;
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

ScopedPlatform::ScopedPlatform(platform::Platform& installed) {
  ResetLog();
  platform::Install(&installed);
}

ScopedPlatform::~ScopedPlatform() {
  ResetLog();
  platform::Install(nullptr);
}

// --- QuickPlatform -------------------------------------------------------------

namespace {

// The one package every lookup finds. The collection and its iterator are
// handed out again and again; their Release keeps them.
class OnePackageIterator final : public platform::PackageIterator {
 public:
  void Reset(fakes::FakePackage* package) { package_ = package; }
  HRESULT GetHasCurrent(BOOL* hasCurrent) override {
    *hasCurrent = package_ != nullptr ? 1 : 0;
    return S_OK;
  }
  HRESULT GetCurrent(platform::Package** package) override {
    if (package_ == nullptr) return E_FAIL;
    package_->AddRef();
    *package = package_;
    return S_OK;
  }
  HRESULT MoveNext(BOOL* hasCurrent) override {
    package_ = nullptr;
    *hasCurrent = 0;
    return S_OK;
  }
  void Release() override {}

 private:
  fakes::FakePackage* package_ = nullptr;
};

class OnePackageCollection final : public platform::PackageCollection {
 public:
  void Reset(fakes::FakePackage* package) { package_ = package; }
  HRESULT First(platform::PackageIterator** iterator) override {
    iterator_.Reset(package_);
    *iterator = &iterator_;
    return S_OK;
  }
  void Release() override {}

 private:
  fakes::FakePackage* package_ = nullptr;
  OnePackageIterator iterator_;
};

}  // namespace

// One service object for the platform's lifetime; Release keeps it. Every
// family name is installed for the fake's user.
class QuickPlatform::Manager final : public platform::DeploymentPackageManager {
 public:
  explicit Manager(QuickPlatform& owner)
      : owner_(owner),
        package_(u"Quick.Package_8wekyb3d8bbwe", u"Quick.Package", u"Quick.Package_1.0.0.0_x64__8wekyb3d8bbwe",
                 PackageVersion{1, 0, 0, 0}, u"C:\\Program Files\\WindowsApps\\Quick.Package") {}
  ~Manager() override = default;
  HRESULT FindPackagesByUserSecurityId(const WCHAR*, platform::PackageCollection**) override { return E_FAIL; }
  HRESULT FindPackagesByUserSecurityIdPackageFamilyName(const WCHAR* sid, const WCHAR* familyName,
                                                        platform::PackageCollection** packages) override {
    const bool found = familyName != nullptr && familyName[0] != 0 && owner_.userSid == sid;
    collection_.Reset(found ? &package_ : nullptr);
    *packages = &collection_;
    return S_OK;
  }
  void Release() override {}

 private:
  QuickPlatform& owner_;
  fakes::FakePackage package_;
  OnePackageCollection collection_;
};

QuickPlatform::QuickPlatform() : manager_(std::make_unique<Manager>(*this)) {}
QuickPlatform::~QuickPlatform() = default;

DWORD QuickPlatform::ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) {
  const std::size_t length = WideLength(source);
  if (std::u16string_view(source, length).find(u'%') != std::u16string_view::npos) {
    return FakePlatform::ExpandEnvironmentStrings(source, buffer, capacity);
  }
  const DWORD needed = static_cast<DWORD>(length + 1);
  if (buffer != nullptr && capacity >= needed) std::memcpy(buffer, source, needed * sizeof(char16_t));
  return needed;
}

BOOL QuickPlatform::PathFileExists(const WCHAR* path) { return path != nullptr && path[0] != 0 ? 1 : 0; }

LONG QuickPlatform::RegOpenKeyEx(platform::RootKey, const WCHAR*, DWORD, DWORD, Handle*) {
  return ERROR_FILE_NOT_FOUND;
}

LONG QuickPlatform::RegQueryValueEx(Handle, const WCHAR*, DWORD*, std::uint8_t*, DWORD*) {
  return ERROR_FILE_NOT_FOUND;
}

LONG QuickPlatform::RegCloseKey(Handle) { return ERROR_SUCCESS; }

std::uint64_t QuickPlatform::VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) {
  unsigned index = 0;
  while (index < 32 && (typeBit & (1u << index)) == 0) ++index;
  return mask | (static_cast<std::uint64_t>(condition & 7) << (index * 3));
}

// As the recording fake answers on its default system, Windows 8 (6.2).
BOOL QuickPlatform::VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) {
  auto passes = [](DWORD actual, DWORD wanted, unsigned condition) {
    switch (condition) {
      case 1: return actual == wanted;
      case 2: return actual > wanted;
      case 3: return actual >= wanted;
      case 4: return actual < wanted;
      case 5: return actual <= wanted;
      default: return false;
    }
  };
  bool ok = true;
  if (typeMask & platform::VER_MINORVERSION) ok = ok && passes(2, info.dwMinorVersion, conditionMask & 7);
  if (typeMask & platform::VER_MAJORVERSION) ok = ok && passes(6, info.dwMajorVersion, (conditionMask >> 3) & 7);
  return ok ? 1 : 0;
}

void* QuickPlatform::LocalAlloc(UINT, std::size_t bytes) { return std::calloc(1, bytes == 0 ? 1 : bytes); }

void* QuickPlatform::LocalFree(void* memory) {
  std::free(memory);
  return nullptr;
}

BOOL QuickPlatform::GetUserName(WCHAR* buffer, DWORD* size) {
  if (userName.size() + 1 > *size) return 0;
  std::memcpy(buffer, userName.c_str(), (userName.size() + 1) * 2);
  *size = static_cast<DWORD>(userName.size() + 1);
  return 1;
}

BOOL QuickPlatform::LookupAccountName(const WCHAR*, const WCHAR*, void* sid, DWORD* sidSize, WCHAR* domain,
                                      DWORD* domainSize) {
  constexpr DWORD kSidSize = 28;
  constexpr char16_t kDomain[] = u"KELPC";
  if (sid == nullptr || *sidSize < kSidSize || domain == nullptr || *domainSize < 6) {
    *sidSize = kSidSize;
    *domainSize = 6;
    return 0;
  }
  std::memset(sid, 0x5A, kSidSize);
  std::memcpy(domain, kDomain, sizeof(kDomain));
  return 1;
}

BOOL QuickPlatform::ConvertSidToStringSid(void*, WCHAR** stringSid) {
  auto* text = static_cast<WCHAR*>(LocalAlloc(platform::LPTR, (userSid.size() + 1) * 2));
  std::memcpy(text, userSid.c_str(), (userSid.size() + 1) * 2);
  *stringSid = text;
  return 1;
}

HRESULT QuickPlatform::RoInitialize(int) { return S_OK; }
void QuickPlatform::RoUninitialize() {}

HRESULT QuickPlatform::ActivatePackageManager(platform::DeploymentPackageManager** manager) {
  *manager = manager_.get();
  return S_OK;
}

// --- PosixFilePlatform ---------------------------------------------------------

namespace {

int Descriptor(Handle handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)) - 1; }

}  // namespace

Handle PosixFilePlatform::CreateFile(const WCHAR*, DWORD, DWORD, DWORD disposition, DWORD) {
  int flags = O_WRONLY | O_CLOEXEC;
  if (disposition == platform::OPEN_ALWAYS) flags |= O_CREAT;
  if (disposition == platform::CREATE_ALWAYS) flags |= O_CREAT | O_TRUNC;
  const int fd = ::open(path_.c_str(), flags, 0644);
  if (fd < 0) return platform::InvalidHandleValue();
  return reinterpret_cast<Handle>(static_cast<std::intptr_t>(fd) + 1);
}

DWORD PosixFilePlatform::SetFilePointer(Handle file, LONG distance, DWORD method) {
  const int whence = method == platform::FILE_END ? SEEK_END : method == 1 ? SEEK_CUR : SEEK_SET;
  const off_t at = ::lseek(Descriptor(file), distance, whence);
  return at < 0 ? platform::INVALID_SET_FILE_POINTER : static_cast<DWORD>(at);
}

BOOL PosixFilePlatform::WriteFile(Handle file, const void* data, DWORD length, DWORD* written) {
  const ssize_t n = ::write(Descriptor(file), data, length);
  if (written != nullptr) *written = n < 0 ? 0 : static_cast<DWORD>(n);
  return n == static_cast<ssize_t>(length) ? 1 : 0;
}

BOOL PosixFilePlatform::CloseHandle(Handle handle) { return ::close(Descriptor(handle)) == 0 ? 1 : 0; }

std::string TemporaryPath(const char* stem) {
  static std::atomic<int> counter{0};
  const char* folder = std::getenv("TMPDIR");
  std::string path = folder != nullptr && folder[0] != 0 ? folder : "/tmp";
  path += "/";
  path += stem;
  path += "-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
  return path;
}

}  // namespace kel::bench

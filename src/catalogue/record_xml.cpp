// The records' part of the app name list file: each record writes its own
// element and reads itself back from the reader positioned on its start tag.
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <new>
#include <vector>

#include "catalogue/records.h"
#include "frame/format.h"
#include "frame/log.h"
#include "frame/wide.h"
#include "text/xml/xml_reader.h"
#include "text/xml/xml_writer.h"

namespace kel {
namespace {

using xml::XmlNodeType;
using xml::XmlReader;
using xml::XmlWriter;

bool NameIs(std::u16string_view name, std::u16string_view wanted) { return EqualsIgnoreCase(name, wanted); }

// Reads one "%d" as the runtime's scanner does, from `i` on, and moves `i`
// past it: white space, a sign, then digits, wrapping as unsigned. False when
// no digit follows the sign.
bool ScanNumber(std::u16string_view text, std::size_t& i, std::uint32_t& value) {
  while (i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
  if (i >= text.size() || text[i] < u'0' || text[i] > u'9') return false;
  value = 0;
  for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i) value = value * 10 + (text[i] - u'0');
  if (negative) value = 0u - value;
  return true;
}

// Reads "%d": a value that does not parse leaves the preset untouched.
int ScanInt(std::u16string_view text, int preset) {
  std::size_t i = 0;
  std::uint32_t value = 0;
  return ScanNumber(text, i, value) ? static_cast<int>(value) : preset;
}

// Reads "%hu.%hu.%hu.%hu": parts after the first that does not parse stay 0.
PackageVersion ScanVersion(std::u16string_view text) {
  WORD parts[4] = {0, 0, 0, 0};
  std::size_t i = 0;
  for (int part = 0; part < 4; ++part) {
    if (part > 0) {
      if (i >= text.size() || text[i] != u'.') break;
      ++i;
    }
    std::uint32_t value = 0;
    if (!ScanNumber(text, i, value)) break;
    parts[part] = static_cast<WORD>(value);
  }
  PackageVersion version;
  version.Major = parts[0];
  version.Minor = parts[1];
  version.Build = parts[2];
  version.Revision = parts[3];
  return version;
}

// Walks the attributes of the current element: value first, then local
// name, as the file reader always has. A failure of either ends the walk, and
// so does a value that cannot be copied (E_OUTOFMEMORY, the reader back on
// the element).
template <typename TakeAttribute>
[[nodiscard]] HRESULT WalkAttributes(XmlReader& reader, TakeAttribute take) {
  for (HRESULT move = reader.MoveToFirstAttribute(); move == S_OK; move = reader.MoveToNextAttribute()) {
    const char16_t* value = nullptr;
    UINT valueLength = 0;
    HRESULT hr = reader.GetValue(&value, &valueLength);
    if (Failed(hr)) return hr;
    const std::u16string_view valueView(value, valueLength);
    const char16_t* name = nullptr;
    UINT nameLength = 0;
    hr = reader.GetLocalName(&name, &nameLength);
    if (Failed(hr)) return hr;
    try {
      take(std::u16string_view(name, nameLength), valueView);
    } catch (const std::bad_alloc&) {
      (void)reader.MoveToElement();  // S_FALSE when already on the element
      return E_OUTOFMEMORY;
    }
  }
  return S_OK;
}

struct Position {
  XmlNodeType type = xml::XmlNodeType_None;
  UINT depth = 0;
  std::u16string_view name;
};

Position Current(XmlReader& reader) {
  Position position;
  (void)reader.GetNodeType(&position.type);  // never fails with a place to put it
  (void)reader.GetDepth(&position.depth);    // never fails with a place to put it
  const char16_t* name = nullptr;
  UINT length = 0;
  if (Succeeded(reader.GetLocalName(&name, &length)) && name != nullptr) position.name = {name, length};
  return position;
}

// An attribute an application keeps as text, and where it goes.
struct TextAttribute {
  const char16_t* name;
  std::u16string_view* value;
};

// Keeps `value` where the text attribute called `name` goes; false when none
// of `texts` is called that.
bool KeepText(std::u16string_view name, std::u16string_view value, std::initializer_list<TextAttribute> texts) {
  for (const TextAttribute& text : texts) {
    if (NameIs(name, text.name)) {
      *text.value = value;
      return true;
    }
  }
  return false;
}

// Reads the application element the reader is on into a new record: `take`
// keeps what it needs of each attribute, then `create` makes the record of
// it.
template <typename App, typename TakeAttribute, typename Create>
[[nodiscard]] HRESULT ReadApp(const char16_t* name, XmlReader* reader, App** ppApp, TakeAttribute take, Create create) {
  WriteDebugLog("%S IN\r\n", name);
  if (reader == nullptr || ppApp == nullptr) return TraceExit(name, E_POINTER);
  const HRESULT hr = WalkAttributes(*reader, take);
  if (Failed(hr)) return TraceExit(name, hr);
  try {
    *ppApp = create().release();
  } catch (const std::bad_alloc&) {
    return TraceExit(name, E_OUTOFMEMORY);
  }
  return TraceExit(name, hr);
}

[[nodiscard]] HRESULT WriteAttribute(XmlWriter& writer, const char16_t* name, std::u16string_view value) {
  return writer.WriteAttributeString(nullptr, name, nullptr, value);
}

struct Attribute {
  const char16_t* name;
  std::u16string_view value;  // empty: the attribute is left out
};

// One application element with those of its attributes that have a value,
// in the order given. A failed attribute shows in the element's end, which
// the caller checks.
[[nodiscard]] HRESULT WriteAppElement(XmlWriter& writer, const char16_t* element,
                                      std::initializer_list<Attribute> attributes) {
  const HRESULT hr = writer.WriteStartElement(nullptr, element, nullptr);
  if (Failed(hr)) return hr;
  for (const Attribute& attribute : attributes) {
    if (!attribute.value.empty()) (void)WriteAttribute(writer, attribute.name, attribute.value);
  }
  return writer.WriteEndElement();
}

}  // namespace

// --- writing -----------------------------------------------------------------

HRESULT CKELMetroApp::ToXmlNode(XmlWriter* writer) const {
  if (writer == nullptr) return E_POINTER;
  return WriteAppElement(*writer, u"MetroApp",
                         {{u"DisplayName", DisplayName()},
                          {u"ShortName", ShortName()},
                          {u"RubyDisplayName", RubyDisplayName()},
                          {u"RubyShortName", RubyShortName()}});
}

HRESULT CKELDesktopApp::ToXmlNode(XmlWriter* writer) const {
  if (writer == nullptr) return E_POINTER;
  if (!NeedReserve && !IsInstalled) return S_FALSE;  // a vanished, unreserved shortcut is dropped
  // The flags are written only where they differ from what a reader assumes.
  return WriteAppElement(*writer, u"DesktopApp",
                         {{u"DisplayName", DisplayName()},
                          {u"LnkFileName", LnkFileName()},
                          {u"LocalizeName", LocalizeName()},
                          {u"RubyDisplayName", RubyDisplayName()},
                          {u"NeedReserve", NeedReserve ? u"1" : u""},
                          {u"IsInstalled", IsInstalled ? u"" : u"0"},
                          {u"IsDualMode", IsDualMode ? u"1" : u""}});
}

HRESULT CKELPackage::ToXmlNode(XmlWriter* writer) const {
  constexpr char16_t kName[] = u"CKELPackage::ToXmlNode";
  WriteDebugLog("%S IN\r\n", kName);
  if (writer == nullptr) return TraceExit(kName, E_POINTER);
  if (!IsInstalled && !NeedReserve) return TraceExit(kName, S_OK);  // dropped silently
  HRESULT hr = writer->WriteStartElement(nullptr, u"Package", nullptr);
  if (Failed(hr)) return TraceExit(kName, hr);
  hr = WriteAttribute(*writer, u"PackageFamilyName", PackageFamilyName);
  if (Succeeded(hr)) {
    const WString version = FormatWide(u"%d.%d.%d.%d", {Version.Major, Version.Minor, Version.Build, Version.Revision});
    hr = WriteAttribute(*writer, u"Version", version);
    if (Succeeded(hr) && NeedReserve) hr = WriteAttribute(*writer, u"NeedReserve", u"1");
  }
  if (!IsInstalled) hr = WriteAttribute(*writer, u"IsInstalled", u"0");
  if (Succeeded(hr)) {
    for (const CKELMetroApp* app = firstApp_; app != nullptr; app = app->next_) {
      if (Failed(app->ToXmlNode(writer))) break;
    }
  }
  return TraceExit(kName, writer->WriteEndElement());
}

// --- reading -----------------------------------------------------------------

HRESULT CKELMetroApp::FromXmlNode(XmlReader* reader, CKELMetroApp** ppApp) {
  // The values stay where the reader holds them until the record, which
  // needs their lengths first, copies them into its one block.
  std::u16string_view displayName, shortName, rubyDisplayName, rubyShortName;
  const auto take = [&](std::u16string_view name, std::u16string_view value) {
    (void)KeepText(name, value,
                   {{u"DisplayName", &displayName},
                    {u"ShortName", &shortName},
                    {u"RubyDisplayName", &rubyDisplayName},
                    {u"RubyShortName", &rubyShortName}});
  };
  return ReadApp(u"CKELMetroApp::FromXmlNode", reader, ppApp, take,
                 [&] { return Create(displayName, shortName, rubyDisplayName, rubyShortName); });
}

HRESULT CKELDesktopApp::FromXmlNode(XmlReader* reader, CKELDesktopApp** ppApp) {
  constexpr char16_t kName[] = u"CKELDesktopApp::FromXmlNode";
  int needReserve = 0, isInstalled = 1, isDualMode = 0;
  // The values stay where the reader holds them (an expanded path in this
  // frame) until the record, which needs their lengths first, copies them
  // into its one block.
  std::u16string_view displayName, lnkFileName, localizeName, rubyDisplayName;
  char16_t expanded[kMaxPath];
  const auto take = [&](std::u16string_view name, std::u16string_view value) {
    if (KeepText(name, value,
                 {{u"DisplayName", &displayName},
                  {u"LocalizeName", &localizeName},
                  {u"RubyDisplayName", &rubyDisplayName}})) {
      return;
    }
    if (NameIs(name, u"NeedReserve")) {
      needReserve = ScanInt(value, 1);
    } else if (NameIs(name, u"LnkFileName")) {
      // Environment references are expanded; a value whose expansion does
      // not fit the 260-character buffer is kept as it stands. The reader's
      // values end in a NUL, so the value is handed over where it stands.
      lnkFileName = value;
      if (!HasUnit(value, u'%')) return;  // nothing to expand
      const DWORD needed =
          platform::Current().ExpandEnvironmentStrings(value.data(), expanded, static_cast<DWORD>(kMaxPath));
      if (needed != 0 && needed <= kMaxPath) {
        lnkFileName = std::u16string_view(expanded, WideLength(expanded));
      } else if (needed > kMaxPath) {
        WriteDebugLog("%S LnkFileName longer than %d characters once expanded, kept as stored\r\n", kName,
                      static_cast<int>(kMaxPath - 1));
      }
    } else if (NameIs(name, u"IsInstalled")) {
      isInstalled = ScanInt(value, 1);
    } else if (NameIs(name, u"IsDualMode")) {
      isDualMode = ScanInt(value, 0);
    }
  };
  return ReadApp(kName, reader, ppApp, take, [&] {
    return Create(displayName, lnkFileName, localizeName, rubyDisplayName, needReserve != 0, isInstalled != 0,
                  isDualMode != 0);
  });
}

HRESULT CKELPackage::FromXmlNode(XmlReader* reader, CKELPackage** ppPackage) {
  constexpr char16_t kName[] = u"CKELPackage::FromXmlNode";
  WriteDebugLog("%S IN\r\n", kName);
  if (reader == nullptr || ppPackage == nullptr) return TraceExit(kName, E_POINTER);
  UINT packageDepth = 0;
  (void)reader->GetDepth(&packageDepth);  // a reader with a node always has its depth
  WString familyName;
  PackageVersion version;
  int needReserve = 0, isInstalled = 1;
  HRESULT hr = WalkAttributes(*reader, [&](std::u16string_view name, std::u16string_view value) {
    if (NameIs(name, u"PackageFamilyName")) {
      familyName = value;
    } else if (NameIs(name, u"Version")) {
      version = ScanVersion(value);
    } else if (NameIs(name, u"NeedReserve")) {
      needReserve = ScanInt(value, 1);
    } else if (NameIs(name, u"IsInstalled")) {
      isInstalled = ScanInt(value, 1);
    }
  });
  // A package that cannot be built for want of memory is skipped, but read
  // past all the same, so the scan goes on after it.
  if (Failed(hr) && hr != E_OUTOFMEMORY) return TraceExit(kName, hr);
  (void)reader->MoveToElement();  // S_FALSE when already on the element
  HRESULT built = hr;
  std::unique_ptr<CKELPackage> package;
  if (Succeeded(built)) {
    try {
      package = std::make_unique<CKELPackage>(familyName.c_str(), version, needReserve != 0, isInstalled != 0);
    } catch (const std::bad_alloc&) {
      built = E_OUTOFMEMORY;
    }
  }

  XmlNodeType type = xml::XmlNodeType_None;
  while ((hr = reader->Read(&type)) == S_OK) {
    const Position at = Current(*reader);
    if (type == xml::XmlNodeType_Element) {
      // An element outside the package belongs to the outer scan, which
      // finds it as the current node.
      if (at.depth <= packageDepth) break;
      if (package != nullptr && NameIs(at.name, u"MetroApp")) {
        CKELMetroApp* app = nullptr;
        if (Succeeded(CKELMetroApp::FromXmlNode(reader, &app)) && app != nullptr) {
          (void)package->AddApplication(app);  // listing through the app itself cannot fail
        }
      }
    } else if (type == xml::XmlNodeType_EndElement && at.depth - 1 <= packageDepth) {
      break;  // the package's own end tag
    }
  }
  if (package == nullptr) return TraceExit(kName, built);
  *ppPackage = package.release();
  return TraceExit(kName, hr);
}

}  // namespace kel

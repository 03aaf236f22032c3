#include "catalogue_count.h"

#include <string_view>

#include "text/xml/xml_reader.h"

namespace kelcli {
namespace {

using kel::HRESULT;
using kel::UINT;
using kel::xml::XmlNodeType;
using kel::xml::XmlReader;

// Element names are matched by length and then without regard to case, as
// the loader matches them.
bool NameIs(const XmlReader& reader, std::u16string_view expected) {
  const char16_t* name = nullptr;
  UINT length = 0;
  if (kel::Failed(reader.GetLocalName(&name, &length)) || name == nullptr || length != expected.size()) return false;
  for (UINT i = 0; i < length; ++i) {
    const auto lower = [](char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; };
    if (lower(name[i]) != lower(expected[i])) return false;
  }
  return true;
}

UINT DepthOf(const XmlReader& reader) {
  UINT depth = 0;
  (void)reader.GetDepth(&depth);  // a reader on a node always has its depth
  return depth;
}

// Reads past the children of the element the reader stands on, as the
// loader does for a package or the desktop list: the walk ends at the
// element's own end tag or at the next element outside it, which is left as
// the current node for the outer scan. `child` is called on every element
// inside. Returns the status of the last advance.
template <typename Child>
HRESULT ReadChildren(XmlReader& reader, Child child) {
  const UINT depth = DepthOf(reader);
  HRESULT hr;
  XmlNodeType type = kel::xml::XmlNodeType_None;
  while ((hr = reader.Read(&type)) == kel::S_OK) {
    const UINT at = DepthOf(reader);
    if (type == kel::xml::XmlNodeType_Element) {
      if (at <= depth) break;
      child();
    } else if (type == kel::xml::XmlNodeType_EndElement && at - 1 <= depth) {
      break;
    }
  }
  return hr;
}

// The value of the attribute `name` of the element the reader stands on, or
// empty; the reader is left on the element.
std::u16string Attribute(XmlReader& reader, std::u16string_view name) {
  std::u16string value;
  for (HRESULT hr = reader.MoveToFirstAttribute(); hr == kel::S_OK; hr = reader.MoveToNextAttribute()) {
    if (!NameIs(reader, name)) continue;
    const char16_t* text = nullptr;
    UINT length = 0;
    if (kel::Succeeded(reader.GetValue(&text, &length)) && text != nullptr) value.assign(text, length);
    break;
  }
  (void)reader.MoveToElement();  // S_FALSE when already on the element
  return value;
}

}  // namespace

CatalogueCount CountCatalogue(std::string_view bytes) {
  CatalogueCount count;
  XmlReader reader;
  HRESULT status = reader.SetInput(bytes);
  while (kel::Succeeded(status)) {
    XmlNodeType type = kel::xml::XmlNodeType_None;
    status = reader.GetNodeType(&type);
    if (status != kel::S_OK) break;
    if (type == kel::xml::XmlNodeType_Element && NameIs(reader, u"Package")) {
      std::u16string familyName = Attribute(reader, u"PackageFamilyName");
      unsigned apps = 0;
      // A package whose children end in a reader error is dropped.
      if (kel::Succeeded(ReadChildren(reader, [&] {
            if (NameIs(reader, u"MetroApp")) ++apps;
          }))) {
        ++count.packages;
        if (apps == 1 && count.singleAppPackage.empty()) count.singleAppPackage = familyName;
      }
      continue;
    }
    if (type == kel::xml::XmlNodeType_Element && NameIs(reader, u"DesktopApps")) {
      ReadChildren(reader, [&] {
        if (NameIs(reader, u"DesktopApp")) ++count.desktopApps;
      });
      continue;
    }
    status = reader.Read(nullptr);
    if (status != kel::S_OK) break;
  }
  count.endStatus = status;
  return count;
}

}  // namespace kelcli

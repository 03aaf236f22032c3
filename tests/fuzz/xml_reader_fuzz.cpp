// Feeds arbitrary bytes to the XML reader and walks every node and
// attribute: any crash, hang or sanitizer finding is a bug.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "text/xml/xml_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kel::xml::XmlReader reader;
  (void)reader.SetInput(std::string_view(reinterpret_cast<const char*>(data), size));
  kel::xml::XmlNodeType type;
  for (int nodes = 0; nodes < 100000 && reader.Read(&type) == kel::S_OK; ++nodes) {
    const char16_t* text = nullptr;
    kel::UINT length = 0;
    kel::UINT depth = 0;
    (void)reader.GetLocalName(&text, &length);
    (void)reader.GetPrefix(&text, &length);
    (void)reader.GetValue(&text, &length);
    (void)reader.GetDepth(&depth);
    (void)reader.IsEmptyElement();
    while (reader.MoveToNextAttribute() == kel::S_OK) {
      (void)reader.GetLocalName(&text, &length);
      (void)reader.GetValue(&text, &length);
    }
    (void)reader.MoveToElement();
  }
  return 0;
}

// The library's own XML writer, for the catalogue file. It writes UTF-8 into
// memory in the shape the system's writer (IXmlWriter with indentation on)
// gives: a byte order mark and declaration, CRLF line ends, two spaces per
// level, childless elements as `<Name />`. Attribute values are always
// escaped, including tabs and line ends, so whatever was written reads back
// unchanged; Wine's writer leaves values unescaped.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace kel::xml {

class XmlWriter {
 public:
  XmlWriter() = default;
  XmlWriter(const XmlWriter&) = delete;
  XmlWriter& operator=(const XmlWriter&) = delete;

  // The byte order mark and <?xml version="1.0" encoding="UTF-8"?>; only
  // before anything else.
  [[nodiscard]] HRESULT WriteStartDocument();
  // `prefix` and `namespaceUri` may be null. A namespace that is not yet in
  // scope is declared on the element.
  [[nodiscard]] HRESULT WriteStartElement(const char16_t* prefix, const char16_t* localName,
                                          const char16_t* namespaceUri);
  // Only while a start tag is open (before the element's first child).
  // `value` may be null for an empty value.
  [[nodiscard]] HRESULT WriteAttributeString(const char16_t* prefix, const char16_t* localName,
                                             const char16_t* namespaceUri, const char16_t* value);
  // The same, for a value whose length is known.
  [[nodiscard]] HRESULT WriteAttributeString(const char16_t* prefix, const char16_t* localName,
                                             const char16_t* namespaceUri, std::u16string_view value);
  [[nodiscard]] HRESULT WriteEndElement();
  // Closes every open element; nothing can be written afterwards.
  [[nodiscard]] HRESULT WriteEndDocument();
  // The output is already in memory; kept for the usual call sequence.
  [[nodiscard]] HRESULT Flush();

  // What was written so far (a start tag may still be open).
  [[nodiscard]] const std::string& Output() const { return output_; }
  // Hands over what was written and starts afresh, ready for a new document.
  std::string TakeOutput();

 private:
  struct Binding {
    std::u16string prefix;
    std::u16string uri;
    std::size_t depth;
  };
  struct PendingDeclaration {
    std::u16string prefix;
    std::u16string uri;
  };

  [[nodiscard]] HRESULT Fail(HRESULT hr);
  void WritePendingDeclarations();
  void CloseStartTag();
  void NewLine(std::size_t depth);
  [[nodiscard]] const std::u16string* LookupPrefix(const std::u16string& prefix) const;
  [[nodiscard]] const std::u16string* LookupUri(const std::u16string& uri, bool allowDefault) const;
  void WriteNamespaceDeclaration(const std::u16string& prefix, const std::u16string& uri);
  // Whether the open start tag already has an attribute of this name.
  [[nodiscard]] bool HasAttributeNamed(std::string_view name) const;
  // Ends the attribute whose name stands at `nameAt` with its quoted value
  // and records the name; on failure the output goes back to `mark`.
  [[nodiscard]] HRESULT FinishAttribute(std::size_t mark, std::size_t nameAt, std::size_t nameLength,
                                        std::u16string_view value);

  enum class State { Initial, Prolog, Content, Epilog, Closed, Failed };

  std::string output_;
  State state_ = State::Initial;
  HRESULT failure_ = S_OK;
  bool startTagOpen_ = false;
  std::vector<std::string> open_;  // qualified names, UTF-8
  std::vector<Binding> bindings_;
  std::vector<PendingDeclaration> pending_;
  // Where the names of the open start tag's attributes stand in output_.
  std::vector<std::pair<std::size_t, std::size_t>> attributeNames_;
  unsigned generatedPrefixes_ = 0;
};

}  // namespace kel::xml

// The record of a walk through an XML reader: every node with its attributes
// as the reader reported them, and the result that ended the walk. It needs
// no test framework, so the Windows program that holds our reader against
// the system's records its walks in the same form as the unit tests.
#pragma once

#include <string>
#include <vector>

#include "text/xml/xml_reader.h"

namespace kel::xml::reader_test {

struct Attr {
  std::u16string prefix;
  std::u16string localName;
  std::u16string value;
  kel::UINT depth = 0;
};

struct Node {
  XmlNodeType type = XmlNodeType_None;
  std::u16string prefix;
  std::u16string localName;
  std::u16string value;
  kel::UINT depth = 0;
  bool empty = false;
  std::vector<Attr> attributes;
};

struct Walk {
  std::vector<Node> nodes;
  kel::HRESULT end = kel::S_OK;  // the result of the last Read
};

}  // namespace kel::xml::reader_test

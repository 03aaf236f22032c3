// Differential check of kel::xml::XmlReader against the system's IXmlReader
// (xmllite.dll). Build it for Windows and run it under Wine or on Windows:
//
//   x86_64-w64-mingw32-g++-posix -std=c++20 -static -I src -I tests
//       tests/wine/xml_differential.cpp src/text/xml/xml_reader.cpp
//       src/text/cp932/cp932.cpp
//       -lole32 -lshlwapi -luuid -o xmldiff.exe        (one command line)
//   wine xmldiff.exe Z:\path\to\tests\wine\xml_corpus
//
// Every *.xml file of the folder (well-formed, complete documents) is read by
// both readers and the node sequences are compared: node type, local name,
// prefix, value, depth, the empty-element flag, every attribute (local name,
// prefix, value, depth, in order) and the result that ends the walk. The
// first mismatches are printed, then one line with the counts of documents.
// Exit code 0 only when no document differs.
//
// A document in Shift JIS (declared by one of code page 932's names) that the
// system's reader refuses by its encoding name, as Wine's does, is not
// compared with that refusal: the system's MultiByteToWideChar(932,
// MB_ERR_INVALID_CHARS) turns it into a UTF-16 twin, the system's reader
// reads the twin, and our reader's walk of the Shift JIS bytes is compared
// with that. Such documents are counted apart, so the summary never claims
// that the system's reader itself read them. Where the system's reader does
// read Shift JIS, the document is compared directly like any other.
//
// xmllite.dll is loaded at run time: mingw-w64 has its header but no import
// library.

// Our reader first: its result constants share names with the Windows
// macros, which must not be defined while it is read.
#include "text/xml/xml_reader.h"
#include "text/xml_walk_records.h"

#include <windows.h>
#include <objbase.h>
#include <shlwapi.h>
#include <xmllite.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using kel::xml::reader_test::Attr;
using kel::xml::reader_test::Node;
using kel::xml::reader_test::Walk;

constexpr int kMaxReportedMismatches = 50;
// Enough for any corpus document; stops a reader that never ends.
constexpr int kMaxNodes = 100000;

using CreateXmlReaderFunction = HRESULT(WINAPI*)(REFIID, void**, IMalloc*);

// Where Wine's reader is known to differ from the documented behaviour of the
// system reader. A mismatch of `file` whose text contains `mismatch` is shown
// as known and not counted.
struct KnownDifference {
  const char* file;
  const char* mismatch;
  const char* reason;
};
constexpr KnownDifference kKnownDifferences[] = {
    // A character reference keeps its character in an attribute value; only
    // literal tabs and line ends become spaces.
    {"catalogue_escapes.xml", "value system \"tab lf cr end\"",
     "Wine turns referenced tabs and line ends in attribute values into spaces"},
    // References above U+FFFF stand for a surrogate pair.
    {"catalogue_escapes.xml", "\\uF600", "Wine truncates character references above U+FFFF to 16 bits"},
    {"text_cdata.xml", "\\uF600", "Wine truncates character references above U+FFFF to 16 bits"},
    // An empty comment is a comment like any other.
    {"empty_comment.xml", "", "Wine loses the end tag that follows an empty comment <!---->"},
    // The value of a namespace declaration is its own text.
    {"namespaces.xml", "attribute 0 \"r\": value system \"urn:r\", ours \"urn:other\"",
     "Wine reports a redeclared prefix's attribute value as the outer namespace"},
    // A UTF-16 big-endian byte order mark selects that encoding.
    {"utf16be_bom.xml", "", "Wine reads no node of a UTF-16 BE document"},
};

std::u16string FromWide(const WCHAR* text, UINT length) {
  return text ? std::u16string(reinterpret_cast<const char16_t*>(text), length) : std::u16string();
}

// Walks a reader with the IXmlReader call shapes; `Reader` is the system's
// IXmlReader or ours.
template <typename Reader, typename Char, typename NodeTypeT>
Walk WalkReader(Reader& reader) {
  Walk walk;
  for (int i = 0; i < kMaxNodes; ++i) {
    NodeTypeT type{};
    const HRESULT hr = reader.Read(&type);
    if (hr != S_OK) {
      walk.end = hr;
      return walk;
    }
    Node node;
    node.type = static_cast<kel::xml::XmlNodeType>(type);
    const Char* text = nullptr;
    UINT length = 0;
    if (reader.GetLocalName(&text, &length) == S_OK)
      node.localName = FromWide(reinterpret_cast<const WCHAR*>(text), length);
    if (reader.GetPrefix(&text, &length) == S_OK) node.prefix = FromWide(reinterpret_cast<const WCHAR*>(text), length);
    if (reader.GetValue(&text, &length) == S_OK) node.value = FromWide(reinterpret_cast<const WCHAR*>(text), length);
    reader.GetDepth(&node.depth);
    node.empty = reader.IsEmptyElement() != 0;
    for (HRESULT more = reader.MoveToFirstAttribute(); more == S_OK; more = reader.MoveToNextAttribute()) {
      Attr attribute;
      if (reader.GetLocalName(&text, &length) == S_OK) {
        attribute.localName = FromWide(reinterpret_cast<const WCHAR*>(text), length);
      }
      if (reader.GetPrefix(&text, &length) == S_OK)
        attribute.prefix = FromWide(reinterpret_cast<const WCHAR*>(text), length);
      if (reader.GetValue(&text, &length) == S_OK)
        attribute.value = FromWide(reinterpret_cast<const WCHAR*>(text), length);
      reader.GetDepth(&attribute.depth);
      node.attributes.push_back(attribute);
    }
    reader.MoveToElement();
    walk.nodes.push_back(std::move(node));
  }
  walk.end = E_FAIL;
  return walk;
}

// Our reader behind the COM reader's call shapes.
struct OurReader {
  kel::xml::XmlReader reader;
  HRESULT Read(kel::xml::XmlNodeType* type) { return reader.Read(type); }
  HRESULT GetLocalName(const char16_t** text, UINT* length) { return reader.GetLocalName(text, length); }
  HRESULT GetPrefix(const char16_t** text, UINT* length) { return reader.GetPrefix(text, length); }
  HRESULT GetValue(const char16_t** text, UINT* length) { return reader.GetValue(text, length); }
  HRESULT GetDepth(UINT* depth) { return reader.GetDepth(depth); }
  BOOL IsEmptyElement() { return reader.IsEmptyElement() ? TRUE : FALSE; }
  HRESULT MoveToFirstAttribute() { return reader.MoveToFirstAttribute(); }
  HRESULT MoveToNextAttribute() { return reader.MoveToNextAttribute(); }
  HRESULT MoveToElement() { return reader.MoveToElement(); }
};

struct SystemReader {
  IXmlReader* reader;
  HRESULT Read(XmlNodeType* type) { return reader->Read(type); }
  HRESULT GetLocalName(const WCHAR** text, UINT* length) { return reader->GetLocalName(text, length); }
  HRESULT GetPrefix(const WCHAR** text, UINT* length) { return reader->GetPrefix(text, length); }
  HRESULT GetValue(const WCHAR** text, UINT* length) { return reader->GetValue(text, length); }
  HRESULT GetDepth(UINT* depth) { return reader->GetDepth(depth); }
  BOOL IsEmptyElement() { return reader->IsEmptyElement(); }
  HRESULT MoveToFirstAttribute() { return reader->MoveToFirstAttribute(); }
  HRESULT MoveToNextAttribute() { return reader->MoveToNextAttribute(); }
  HRESULT MoveToElement() { return reader->MoveToElement(); }
};

std::string Show(const std::u16string& text) {
  std::string shown = "\"";
  char piece[16];
  for (char16_t c : text) {
    if (c >= 0x20 && c < 0x7F && c != '"' && c != '\\') {
      shown += static_cast<char>(c);
    } else {
      std::snprintf(piece, sizeof piece, "\\u%04X", static_cast<unsigned>(c));
      shown += piece;
    }
  }
  return shown + "\"";
}

std::string Hex(HRESULT hr) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%08lX", static_cast<unsigned long>(hr));
  return text;
}

std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (wchar_t c : text) narrow += c < 0x80 ? static_cast<char>(c) : '?';
  return narrow;
}

// Lists the differences of two walks, one line each.
std::vector<std::string> Compare(const Walk& system, const Walk& ours) {
  std::vector<std::string> differences;
  const std::size_t common = std::min(system.nodes.size(), ours.nodes.size());
  for (std::size_t i = 0; i < common; ++i) {
    const Node& a = system.nodes[i];
    const Node& b = ours.nodes[i];
    const std::string at = "node " + std::to_string(i) + " (type " + std::to_string(static_cast<int>(a.type)) + " " +
                           Show(a.localName) + ")";
    if (a.type != b.type)
      differences.push_back(at + ": type system " + std::to_string(static_cast<int>(a.type)) + ", ours " +
                            std::to_string(static_cast<int>(b.type)));
    if (a.localName != b.localName)
      differences.push_back(at + ": local name system " + Show(a.localName) + ", ours " + Show(b.localName));
    if (a.prefix != b.prefix)
      differences.push_back(at + ": prefix system " + Show(a.prefix) + ", ours " + Show(b.prefix));
    if (a.value != b.value) differences.push_back(at + ": value system " + Show(a.value) + ", ours " + Show(b.value));
    if (a.depth != b.depth)
      differences.push_back(at + ": depth system " + std::to_string(a.depth) + ", ours " + std::to_string(b.depth));
    if (a.empty != b.empty)
      differences.push_back(at + ": empty system " + std::to_string(a.empty) + ", ours " + std::to_string(b.empty));
    if (a.attributes.size() != b.attributes.size()) {
      differences.push_back(at + ": attribute count system " + std::to_string(a.attributes.size()) + ", ours " +
                            std::to_string(b.attributes.size()));
    }
    const std::size_t attributes = std::min(a.attributes.size(), b.attributes.size());
    for (std::size_t k = 0; k < attributes; ++k) {
      const Attr& x = a.attributes[k];
      const Attr& y = b.attributes[k];
      const std::string where = at + " attribute " + std::to_string(k) + " " + Show(x.localName);
      if (x.localName != y.localName)
        differences.push_back(where + ": local name system " + Show(x.localName) + ", ours " + Show(y.localName));
      if (x.prefix != y.prefix)
        differences.push_back(where + ": prefix system " + Show(x.prefix) + ", ours " + Show(y.prefix));
      if (x.value != y.value)
        differences.push_back(where + ": value system " + Show(x.value) + ", ours " + Show(y.value));
      if (x.depth != y.depth)
        differences.push_back(where + ": depth system " + std::to_string(x.depth) + ", ours " +
                              std::to_string(y.depth));
    }
  }
  if (system.nodes.size() != ours.nodes.size()) {
    differences.push_back("node count system " + std::to_string(system.nodes.size()) + ", ours " +
                          std::to_string(ours.nodes.size()));
  }
  if (system.end != ours.end)
    differences.push_back("end of walk system " + Hex(system.end) + ", ours " + Hex(ours.end));
  return differences;
}

const KnownDifference* FindKnown(const std::string& file, const std::string& difference) {
  for (const KnownDifference& known : kKnownDifferences) {
    if (known.file && file == known.file && difference.find(known.mismatch) != std::string::npos) return &known;
  }
  return nullptr;
}

bool ReadFileBytes(const std::wstring& path, std::string& bytes) {
  HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  bytes.clear();
  char buffer[65536];
  DWORD read = 0;
  bool ok = true;
  while ((ok = ReadFile(file, buffer, sizeof buffer, &read, nullptr) != 0) && read > 0) bytes.append(buffer, read);
  CloseHandle(file);
  return ok;
}

constexpr HRESULT kEncodingNameRefused = static_cast<HRESULT>(0xC00CEE41);  // WC_E_ENCNAME

// The encoding name of the document's declaration, as written; empty when
// there is none.
std::string DeclaredEncoding(const std::string& bytes) {
  if (bytes.compare(0, 6, "<?xml ") != 0) return {};
  const std::size_t close = bytes.find("?>");
  const std::size_t at = bytes.find("encoding=");
  if (close == std::string::npos || at == std::string::npos || at > close || at + 10 > close) return {};
  const char quote = bytes[at + 9];
  const std::size_t end = bytes.find(quote, at + 10);
  if (end == std::string::npos || end > close) return {};
  return bytes.substr(at + 10, end - at - 10);
}

bool IsShiftJisName(const std::string& name) {
  for (const char* known : {"shift_jis", "shift-jis", "x-sjis", "windows-31j", "cp932"}) {
    if (lstrcmpiA(name.c_str(), known) == 0) return true;
  }
  return false;
}

// The Shift JIS document as UTF-16 LE with a byte order mark, converted by the
// system, its declaration naming UTF-16 instead; false when the system's
// converter refuses a byte of it.
bool TranscodeShiftJis(const std::string& bytes, const std::string& name, std::string& twin) {
  const int units =
      MultiByteToWideChar(932, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()), nullptr, 0);
  if (units <= 0) return false;
  std::wstring text(static_cast<std::size_t>(units), L'\0');
  MultiByteToWideChar(932, MB_ERR_INVALID_CHARS, bytes.data(), static_cast<int>(bytes.size()), text.data(), units);
  const std::wstring wideName(name.begin(), name.end());
  const std::size_t at = text.find(L"encoding=") + 10;
  text.replace(at, wideName.size(), L"UTF-16");
  twin.assign("\xFF\xFE");
  for (wchar_t c : text) {
    twin += static_cast<char>(c & 0xFF);
    twin += static_cast<char>((c >> 8) & 0xFF);
  }
  return true;
}

// The system reader's walk of `bytes`.
Walk WalkSystemReader(CreateXmlReaderFunction createReader, const std::string& bytes, HRESULT& setUp) {
  IXmlReader* system = nullptr;
  IStream* stream = SHCreateMemStream(reinterpret_cast<const BYTE*>(bytes.data()), static_cast<UINT>(bytes.size()));
  setUp = stream ? createReader(__uuidof(IXmlReader), reinterpret_cast<void**>(&system), nullptr) : E_OUTOFMEMORY;
  if (SUCCEEDED(setUp)) setUp = system->SetInput(stream);
  Walk walk;
  if (SUCCEEDED(setUp)) {
    SystemReader systemReader{system};
    walk = WalkReader<SystemReader, WCHAR, XmlNodeType>(systemReader);
  }
  if (stream) stream->Release();
  if (system) system->Release();
  return walk;
}

void Dump(const char* who, const Walk& walk) {
  for (const Node& node : walk.nodes) {
    std::printf("  %s: type %d depth %u %s:%s %s%s\n", who, static_cast<int>(node.type), node.depth,
                Show(node.prefix).c_str(), Show(node.localName).c_str(), Show(node.value).c_str(),
                node.empty ? " empty" : "");
    for (const Attr& attribute : node.attributes) {
      std::printf("  %s:     @ depth %u %s:%s = %s\n", who, attribute.depth, Show(attribute.prefix).c_str(),
                  Show(attribute.localName).c_str(), Show(attribute.value).c_str());
    }
  }
  std::printf("  %s: end %s\n", who, Hex(walk.end).c_str());
}

}  // namespace

// With --dump after the folder, both walks of every document are printed.
int main(int argc, char** argv) {
  const bool dump = argc == 3 && std::string(argv[2]) == "--dump";
  if (argc != 2 && !dump) {
    std::printf("usage: xmldiff.exe CORPUS_FOLDER [--dump]\n");
    return 2;
  }
  std::wstring folder(MAX_PATH, L'\0');
  folder.resize(MultiByteToWideChar(CP_ACP, 0, argv[1], -1, folder.data(), MAX_PATH));
  if (folder.empty()) {
    std::printf("xml differential: bad folder name\n");
    return 2;
  }
  folder.pop_back();  // the terminator

  HMODULE xmllite = LoadLibraryW(L"xmllite.dll");
  if (!xmllite) {
    std::printf("xml differential: cannot load xmllite.dll (error %lu)\n", GetLastError());
    return 2;
  }
  auto createReader = reinterpret_cast<CreateXmlReaderFunction>(
      reinterpret_cast<void (*)()>(GetProcAddress(xmllite, "CreateXmlReader")));
  if (!createReader) {
    std::printf("xml differential: xmllite.dll has no CreateXmlReader\n");
    return 2;
  }
  CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);

  std::vector<std::wstring> files;
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW((folder + L"\\*.xml").c_str(), &found);
  if (search != INVALID_HANDLE_VALUE) {
    do {
      if (!(found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) files.push_back(found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
  }
  std::sort(files.begin(), files.end());
  if (files.empty()) {
    std::printf("xml differential: no *.xml files in %s\n", Narrow(folder).c_str());
    return 2;
  }

  int passed = 0;
  int failed = 0;
  int reported = 0;
  int knownDifferences = 0;
  int passedThroughTwin = 0;
  const std::wstring prefix = folder + L"\\";
  for (const std::wstring& name : files) {
    const std::wstring path = prefix + name;
    const std::string file = Narrow(name);

    IXmlReader* system = nullptr;
    IStream* stream = nullptr;
    HRESULT hr = createReader(__uuidof(IXmlReader), reinterpret_cast<void**>(&system), nullptr);
    if (SUCCEEDED(hr)) hr = SHCreateStreamOnFileW(path.c_str(), STGM_READ | STGM_SHARE_DENY_WRITE, &stream);
    if (SUCCEEDED(hr)) hr = system->SetInput(stream);
    std::string bytes;
    if (FAILED(hr) || !ReadFileBytes(path, bytes)) {
      std::printf("%s: cannot set up the readers (%s)\n", file.c_str(), Hex(hr).c_str());
      ++failed;
      if (stream) stream->Release();
      if (system) system->Release();
      continue;
    }
    SystemReader systemReader{system};
    Walk systemWalk = WalkReader<SystemReader, WCHAR, XmlNodeType>(systemReader);
    stream->Release();
    system->Release();

    const std::string encodingName = DeclaredEncoding(bytes);
    const bool throughTwin =
        systemWalk.nodes.empty() && systemWalk.end == kEncodingNameRefused && IsShiftJisName(encodingName);
    if (throughTwin) {
      std::printf(
          "%s: the system's reader refuses the encoding name \"%s\" (%s): compared with its reading of the "
          "system's UTF-16 conversion instead\n",
          file.c_str(), encodingName.c_str(), Hex(systemWalk.end).c_str());
      std::string twin;
      if (!TranscodeShiftJis(bytes, encodingName, twin)) {
        std::printf("%s: the system's code page 932 converter refuses the document\n", file.c_str());
        ++failed;
        continue;
      }
      HRESULT setUp = S_OK;
      systemWalk = WalkSystemReader(createReader, twin, setUp);
      if (FAILED(setUp)) {
        std::printf("%s: cannot set up the system's reader on the UTF-16 conversion (%s)\n", file.c_str(),
                    Hex(setUp).c_str());
        ++failed;
        continue;
      }
      // The twin's declaration names UTF-16: the one value in which the two
      // documents differ by construction.
      if (!systemWalk.nodes.empty() && systemWalk.nodes[0].type == kel::xml::XmlNodeType_XmlDeclaration) {
        for (Attr& attribute : systemWalk.nodes[0].attributes) {
          if (attribute.localName == u"encoding") attribute.value.assign(encodingName.begin(), encodingName.end());
        }
      }
    }

    OurReader ours;
    (void)ours.reader.SetInput(bytes);  // a refused input shows in the walk, as in the system reader
    const Walk ourWalk = WalkReader<OurReader, char16_t, kel::xml::XmlNodeType>(ours);

    if (dump) {
      std::printf("%s\n", file.c_str());
      Dump("system", systemWalk);
      Dump("ours", ourWalk);
    }
    bool counted = false;
    std::vector<const KnownDifference*> seen;
    for (const std::string& difference : Compare(systemWalk, ourWalk)) {
      const KnownDifference* known = FindKnown(file, difference);
      if (known) {
        // Once per entry: one fault of Wine's can shift every later node.
        if (std::find(seen.begin(), seen.end(), known) == seen.end()) {
          seen.push_back(known);
          ++knownDifferences;
          std::printf("%s: known difference, not counted (%s): %s\n", file.c_str(), known->reason, difference.c_str());
        }
        continue;
      }
      counted = true;
      if (reported++ < kMaxReportedMismatches) std::printf("%s: %s\n", file.c_str(), difference.c_str());
    }
    if (counted) {
      ++failed;
    } else {
      ++passed;
      if (throughTwin) ++passedThroughTwin;
    }
  }

  CoUninitialize();
  if (reported > kMaxReportedMismatches)
    std::printf("(%d more mismatches not shown)\n", reported - kMaxReportedMismatches);
  std::printf("known differences of Wine's reader: %d\n", knownDifferences);
  std::printf("xml differential: %d passed, %d failed\n", passed, failed);
  if (passedThroughTwin > 0) {
    std::printf(
        "of the passed, %d agree only with the system's reading of their UTF-16 conversion: the system's "
        "reader refused their encoding name\n",
        passedThroughTwin);
  }
  return failed == 0 ? 0 : 1;
}

// How many packages and desktop apps a catalogue file holds, counted the way
// the library's loader takes them, with the library's own XML reader. Kept
// apart from the Windows-header files: the reader's result constants share their names
// with the Windows macros, so this side never sees <windows.h>.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kelcli {

struct CatalogueCount {
  unsigned packages = 0;
  unsigned desktopApps = 0;
  // The reader's status that ended the scan. A file the library wrote never
  // closes its root, so a complete one ends in "unexpected end of input"
  // (0xC00CEE01) after its last record; a closed root ends in S_FALSE (1).
  std::int32_t endStatus = 0;
  // The family name of the first counted package with exactly one app
  // (empty when none has): the package the self-test asks the library
  // about, since a display name is only given for a package of one app.
  std::u16string singleAppPackage;
};

// `bytes` is the whole file as read from disk, in any encoding the library
// reads (UTF-8, UTF-16, Shift JIS).
CatalogueCount CountCatalogue(std::string_view bytes);

}  // namespace kelcli

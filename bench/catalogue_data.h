// The generated catalogue the benchmarks share (10,000 desktop apps, 2,000
// packages of two apps each), its file and the names a search looks at.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "catalogue/app_name_list.h"
#include "fakes/fake_platform.h"
#include "frame/wide.h"

namespace kel::bench {

inline const WString kFolder = u"C:\\Users\\kel\\AppData\\Local\\Osk\\Kelbrook\\Launcher";
inline const WString kFile = kFolder + u"\\AppNameList1.0.4.0.xml";
inline const WString kSavedFile = kFolder + u"\\Saved.xml";

constexpr int kDesktopApps = 10000;
constexpr int kPackages = 2000;
constexpr int kAppsPerPackage = 2;

// The word every exclusion benchmark searches for.
inline constexpr char16_t kSearchWord[] = u"app 1";

struct MetroAppEntry {
  WString displayName;  // lower-cased, as the catalogue keeps it
  WString shortName;    // lower-cased
  WString rubyDisplayName;
};

struct PackageEntry {
  WString familyName;
  PackageVersion version;
  MetroAppEntry apps[kAppsPerPackage];
};

struct DesktopAppEntry {
  WString displayName;  // lower-cased
  WString lnkFileName;
  WString localizeName;
};

const std::vector<PackageEntry>& GeneratedPackages();
const std::vector<DesktopAppEntry>& GeneratedDesktopApps();

// The catalogue file, in the form Save writes. Made once; on first use it is
// checked by loading it and saving it again, which must give the same bytes.
// That check installs a fake of its own and then none, so call this before
// installing the platform a benchmark works on.
const std::string& CatalogueFileBytes();

// The strings a search matches the word against, lower-cased: each Store
// app's display, short and ruby names, each desktop app's localised name
// (or its display name when it has none).
const std::vector<WString>& SearchedNames();

// Sum of (length + 1) * 2 over every non-empty string the catalogue stores.
std::size_t StoredStringBytes(const CKELAppNameList& list);

}  // namespace kel::bench

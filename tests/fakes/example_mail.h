// Example.Mail, the package the catalogue and discovery tests deploy: its
// full name and installed folder follow the system's package folder layout,
// so they are derived from the version rather than written out per test.
#pragma once

#include <string>

#include "fakes/fake_package.h"
#include "platform/platform.h"

namespace kel::fakes {

// "Example.Mail_2.0.0.0_x86__abc" for version 2.0.0.0.
inline WString ExampleMailFullName(platform::PackageVersion version) {
  WString name = u"Example.Mail_";
  for (const WORD part : {version.Major, version.Minor, version.Build, version.Revision}) {
    if (name.back() != u'_') name += u'.';
    for (const char digit : std::to_string(part)) name += static_cast<char16_t>(digit);
  }
  return name + u"_x86__abc";
}

inline WString ExampleMailFolder(platform::PackageVersion version) {
  return u"C:\\Program Files\\WindowsApps\\" + ExampleMailFullName(version);
}

inline FakePackage ExampleMail(platform::PackageVersion version) {
  return {u"Example.Mail_abc", ExampleMailFullName(version), u"Example.Mail", version, ExampleMailFolder(version)};
}

// One application, "Mail Box", whose tile is "Mail".
inline constexpr char kExampleMailManifest[] =
    "<Package><Applications><Application><VisualElements DisplayName=\"Mail Box\"><DefaultTile ShortName=\"Mail\"/>"
    "</VisualElements></Application></Applications></Package>";

}  // namespace kel::fakes

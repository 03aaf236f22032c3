// Reads arbitrary bytes as a package manifest through every reading the
// library makes of one.
#include <cstddef>
#include <cstdint>
#include <string>

#include "catalogue/records.h"
#include "fakes/fake_package.h"
#include "fakes/fake_platform.h"
#include "manifest/manifest_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kel::fakes::ScopedFakePlatform fake;
  const kel::WString folder = u"C:\\Apps\\Fuzz";
  const kel::WString manifest = folder + u"\\AppxManifest.xml";
  fake->AddFile(manifest, std::string(reinterpret_cast<const char*>(data), size));
  fake->indirectStrings[u"@{F?ms-resource://N/resources/appname}"] = u"Resolved";

  kel::CKELPackage package(u"Fuzz_abc", {}, 0, 1);
  package.FullName = u"F";
  package.Name = u"N";
  (void)kel::CKELManifestReader::GetAppNameUsingXmlParser(manifest.c_str(), &package);
  kel::BOOL canGet = 0;
  (void)kel::CKELManifestReader::IsCanGetAppNameFromManifest(manifest.c_str(), &package, &canGet);

  kel::fakes::FakePackage platformPackage(u"Fuzz_abc", u"F", u"N", {}, folder);
  char16_t* name = nullptr;
  (void)kel::CKELManifestReader::GetAppDisplayName(&platformPackage, &name);
  if (name != nullptr) fake->LocalFree(name);
  if (fake->LiveLocalAllocations() != 0) __builtin_trap();
  return 0;
}

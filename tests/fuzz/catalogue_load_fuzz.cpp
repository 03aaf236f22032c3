// Loads arbitrary bytes as the app name list file, then saves and loads the
// result again: the catalogue must neither crash nor lose what it saved.
#include <cstddef>
#include <cstdint>
#include <string>

#include "catalogue/app_name_list.h"
#include "fakes/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  kel::fakes::ScopedFakePlatform fake;
  const kel::WString file = u"C:\\Users\\kel\\AppData\\Local\\AppNameList1.0.4.0.xml";
  fake->AddFile(file, std::string(reinterpret_cast<const char*>(data), size));
  kel::CKELAppNameList list;
  (void)list.Load(file.c_str());
  const std::size_t packages = list.Packages().size();
  const std::size_t desktopApps = list.DesktopApps().size();
  if (kel::Failed(list.Save(file.c_str()))) __builtin_trap();
  kel::CKELAppNameList reloaded;
  (void)reloaded.Load(file.c_str());
  if (reloaded.Packages().size() > packages || reloaded.DesktopApps().size() > desktopApps) __builtin_trap();
  return 0;
}

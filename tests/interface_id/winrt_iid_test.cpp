#include "interface_id/winrt_iid.h"

#include <gtest/gtest.h>

#include "frame/format.h"

namespace kel::interface_id {
namespace {

std::string Text(const Guid& g) {
  return FormatNarrow("{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                      {g.data1, g.data2, g.data3, g.data4[0], g.data4[1], g.data4[2], g.data4[3], g.data4[4],
                       g.data4[5], g.data4[6], g.data4[7]});
}

TEST(WinRtInterfaceIds, IterableOfPackageIsDerivedFromItsSignature) {
  EXPECT_EQ(Text(ParameterizedInterfaceId(kIterableOfPackageSignature)), "{69AD6AA7-0C49-5F27-A5EB-EF4D59467B6D}");
}

TEST(WinRtInterfaceIds, IteratorOfPackageIsDerivedFromItsSignature) {
  EXPECT_EQ(Text(ParameterizedInterfaceId(kIteratorOfPackageSignature)), "{0217F069-025C-5EE6-A87F-E782E3B623AE}");
}

}  // namespace
}  // namespace kel::interface_id

#include "frame/pfn_substitution.h"

#include <array>

#include "frame/version_test.h"
#include "frame/wide.h"

namespace kel {
namespace {

// Row i of the obsolete names is replaced by row i of the successors; two
// old names share one successor.
const std::array<WString, 3> g_aObsoletePFN = {
    u"microsoft.microsoftskydrive_8wekyb3d8bbwe",
    u"microsoft.windowsphotos_8wekyb3d8bbwe",
    u"Microsoft.Camera_8wekyb3d8bbwe",
};
const std::array<WString, 3> g_aSuccessorPFN = {
    u"FileManager_cw5n1h2txyewy",
    u"FileManager_cw5n1h2txyewy",
    u"Microsoft.MoCamera_cw5n1h2txyewy",
};

}  // namespace

namespace {

// The successor of `name`, or null where none applies.
const WString* Successor(const char16_t* name) {
  if (!IsMinorVersionAtLeastThree()) return nullptr;
  if (name == nullptr) return nullptr;
  for (std::size_t row = 0; row < g_aObsoletePFN.size(); ++row) {
    if (EqualsIgnoreCase(name, g_aObsoletePFN[row].c_str())) return &g_aSuccessorPFN[row];
  }
  return nullptr;
}

}  // namespace

bool ReplaceObsoletePFN(const char16_t* name, WString& replacement) {
  const WString* successor = Successor(name);
  if (successor == nullptr) return false;
  replacement = *successor;
  return true;
}

const char16_t* EffectivePFN(const char16_t* name) {
  const WString* successor = Successor(name);
  return successor != nullptr ? successor->c_str() : name;
}

}  // namespace kel

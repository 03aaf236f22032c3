#include "catalogue/exclude_list.h"

#include "frame/wide.h"

namespace kel {
namespace {

// Names compare as C strings (up to the first NUL) with A to Z folded.
WString FoldedKey(const WString& name) {
  WString key(name.c_str());
  LowerInPlace(key);
  return key;
}

}  // namespace

ExcludeAppNameList::ExcludeAppNameList(std::initializer_list<const char16_t*> names) {
  for (const char16_t* name : names) AddUnique(WString(name));
}

HRESULT ExcludeAppNameList::AddUnique(const WString& name) {
  try {
    auto [at, added] = folded_.insert(FoldedKey(name));
    if (!added) return S_FALSE;
    try {
      names_.push_back(name);
    } catch (...) {
      folded_.erase(at);
      throw;
    }
    return S_OK;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kel

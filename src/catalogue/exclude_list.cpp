#include "catalogue/exclude_list.h"

#include <cstdint>
#include <new>
#include <utility>

#include "frame/wide.h"

namespace kel {

std::size_t ExcludeAppNameList::FoldedHash::operator()(const WString* name) const noexcept {
  // FNV-1a over the folded units, in 64 bits on every target.
  std::uint64_t hash = 14695981039346656037ull;
  for (const char16_t* p = name->c_str(); *p != 0; ++p) {
    hash = (hash ^ AsciiLower(*p)) * 1099511628211ull;
  }
  return static_cast<std::size_t>(hash ^ (hash >> 32));
}

bool ExcludeAppNameList::FoldedEqual::operator()(const WString* a, const WString* b) const noexcept {
  return EqualsIgnoreCase(a->c_str(), b->c_str());
}

// A constructor has no result to report a name it could not take: it
// throws rather than hand out a list with names missing.
ExcludeAppNameList::ExcludeAppNameList(std::initializer_list<const char16_t*> names) {
  for (const char16_t* name : names) {
    if (AddUnique(WString(name)) == E_OUTOFMEMORY) throw std::bad_alloc();
  }
}

ExcludeAppNameList::ExcludeAppNameList(const ExcludeAppNameList& other) {
  for (const WString& name : other.names_) {
    if (AddUnique(name) == E_OUTOFMEMORY) throw std::bad_alloc();
  }
}

ExcludeAppNameList& ExcludeAppNameList::operator=(const ExcludeAppNameList& other) {
  if (this != &other) {
    ExcludeAppNameList copy(other);
    *this = std::move(copy);
  }
  return *this;
}

HRESULT ExcludeAppNameList::AddUnique(const WString& name) {
  try {
    if (index_.find(&name) != index_.end()) return S_FALSE;
    names_.push_back(name);
    try {
      index_.insert(&names_.back());
    } catch (...) {
      names_.pop_back();
      throw;
    }
    return S_OK;
  } catch (...) {
    return E_OUTOFMEMORY;
  }
}

}  // namespace kel

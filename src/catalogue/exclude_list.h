// The names a search leaves out: in insertion order, no two equal when ASCII
// case is ignored. A search over a large catalogue appends thousands of
// names, so the list keeps the folded form of each beside it and tells a
// repeat by one lookup instead of a walk over everything listed so far.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <list>
#include <unordered_set>

#include "platform/types.h"

namespace kel {

class ExcludeAppNameList {
 public:
  using const_iterator = std::list<WString>::const_iterator;

  ExcludeAppNameList() = default;
  // Each name goes in as AddUnique would put it; std::bad_alloc when one
  // cannot.
  ExcludeAppNameList(std::initializer_list<const char16_t*> names);

  // S_OK when appended, S_FALSE when a name equal to it ignoring case is
  // already listed, E_OUTOFMEMORY when the list cannot grow (the list is
  // then as it was).
  HRESULT AddUnique(const WString& name);

  const_iterator begin() const { return names_.begin(); }
  const_iterator end() const { return names_.end(); }
  std::size_t size() const { return names_.size(); }
  bool empty() const { return names_.empty(); }

  // Copies index their own names; a copy that cannot take every name
  // throws std::bad_alloc.
  ExcludeAppNameList(const ExcludeAppNameList& other);
  ExcludeAppNameList& operator=(const ExcludeAppNameList& other);
  ExcludeAppNameList(ExcludeAppNameList&&) noexcept = default;
  ExcludeAppNameList& operator=(ExcludeAppNameList&&) noexcept = default;

  friend bool operator==(const ExcludeAppNameList& a, const ExcludeAppNameList& b) { return a.names_ == b.names_; }

 private:
  // Names compare as C strings (up to the first NUL) with A to Z folded.
  struct FoldedHash {
    std::size_t operator()(const WString* name) const noexcept;
  };
  struct FoldedEqual {
    bool operator()(const WString* a, const WString* b) const noexcept;
  };

  std::list<WString> names_;
  std::unordered_set<const WString*, FoldedHash, FoldedEqual> index_;  // into names_, whose nodes stay put
};

// The list's AddUnique, under the name the records use.
inline HRESULT AddUniqueName(ExcludeAppNameList& list, const WString& name) { return list.AddUnique(name); }

}  // namespace kel

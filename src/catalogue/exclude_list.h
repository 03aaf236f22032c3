// The names a search leaves out: in insertion order, no two equal when ASCII
// case is ignored. A search over a large catalogue appends thousands of
// names, so the list keeps a table of them folded to lower case and tells a
// repeat by one lookup instead of a walk over everything listed so far.
//
// A name taken from a record is not copied: the list refers to the record's
// own string and holds a reference to the record, so the name stays valid for
// as long as the list lives, whatever happens to the catalogue meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string_view>
#include <vector>

#include "catalogue/record_text.h"
#include "frame/log.h"
#include "frame/trace_exit.h"
#include "platform/types.h"

namespace kel {

class CKELApp;

class ExcludeAppNameList {
 private:
  struct Entry {
    const char16_t* text;  // NUL-terminated where it is stored
    std::size_t length;
    const CKELApp* owner;  // holds a reference; null for a name of the list's own
    std::uint32_t hash;
  };

 public:
  class const_iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = RecordText;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = RecordText;
    const_iterator() = default;
    RecordText operator*() const { return RecordText(at_->text, at_->length); }
    const_iterator& operator++() {
      ++at_;
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator before = *this;
      ++at_;
      return before;
    }
    friend bool operator==(const_iterator a, const_iterator b) { return a.at_ == b.at_; }

   private:
    friend class ExcludeAppNameList;
    explicit const_iterator(const Entry* at) : at_(at) {}
    const Entry* at_ = nullptr;
  };

  ExcludeAppNameList() = default;
  // Each name goes in as AddUnique would put it; std::bad_alloc when one
  // cannot.
  ExcludeAppNameList(std::initializer_list<const char16_t*> names);
  ~ExcludeAppNameList();

  // S_OK when appended, S_FALSE when a name equal to it ignoring case is
  // already listed, E_OUTOFMEMORY when the list cannot grow (the list is
  // then as it was). The list keeps a copy of `name`.
  [[nodiscard]] HRESULT AddUnique(const WString& name);
  // The same for a string of `owner`'s own, which the list refers to and
  // keeps alive with a reference to `owner`.
  [[nodiscard]] HRESULT AddUnique(const CKELApp& owner, const RecordText& name);

  [[nodiscard]] const_iterator begin() const { return const_iterator(entries_.data()); }
  [[nodiscard]] const_iterator end() const { return const_iterator(entries_.data() + entries_.size()); }
  [[nodiscard]] std::size_t size() const { return entries_.size(); }
  [[nodiscard]] bool empty() const { return entries_.empty(); }

  // Copies index their own names; a copy that cannot take every name
  // throws std::bad_alloc.
  ExcludeAppNameList(const ExcludeAppNameList& other);
  ExcludeAppNameList& operator=(const ExcludeAppNameList& other);
  ExcludeAppNameList(ExcludeAppNameList&& other) noexcept;
  ExcludeAppNameList& operator=(ExcludeAppNameList&& other) noexcept;

  friend bool operator==(const ExcludeAppNameList& a, const ExcludeAppNameList& b);

 private:
  // Names compare as C strings (up to the first NUL) with A to Z folded.
  static std::uint32_t FoldedHash(const char16_t* name) noexcept;
  // The slot that holds `name`, or the empty slot where it would go.
  std::size_t SlotOf(const char16_t* name, std::uint32_t hash) const noexcept;
  // Room for one more entry and its slot; false when there is none.
  [[nodiscard]] bool MakeRoom() noexcept;
  void Append(const Entry& entry) noexcept;
  void ReleaseOwners() noexcept;

  std::vector<Entry> entries_;
  // An open-addressed table of entries_ indexes plus one (0: empty), kept
  // at most half full.
  std::vector<std::uint32_t> slots_;
  // The names the list copied, each where it stays.
  std::vector<std::unique_ptr<WString>> copies_;
};

// The list's AddUnique, under the name the records use.
[[nodiscard]] inline HRESULT AddUniqueName(ExcludeAppNameList& list, const WString& name) {
  return list.AddUnique(name);
}

// The entry line and the argument check every step of an exclusion walk
// opens with: E_POINTER for a missing argument, E_INVALIDARG for an empty
// word.
[[nodiscard]] inline HRESULT EnterExclusionWalk(const char16_t* name, const char16_t* searchWord,
                                                const ExcludeAppNameList* excludeList, const BOOL* pFound) {
  WriteDebugLog("%S(%S) IN\r\n", name, searchWord);
  return CheckStringArgument(searchWord, excludeList, pFound);
}

}  // namespace kel

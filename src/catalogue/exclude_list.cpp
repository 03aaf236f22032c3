#include "catalogue/exclude_list.h"

#include <new>
#include <utility>

#include "catalogue/records.h"
#include "frame/wide.h"

namespace kel {

std::uint32_t ExcludeAppNameList::FoldedHash(const char16_t* name) noexcept {
  // FNV-1a over the folded units.
  std::uint64_t hash = 14695981039346656037ull;
  for (const char16_t* p = name; *p != 0; ++p) hash = (hash ^ AsciiLower(*p)) * 1099511628211ull;
  return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

std::size_t ExcludeAppNameList::SlotOf(const char16_t* name, std::uint32_t hash) const noexcept {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    const std::uint32_t slot = slots_[i];
    if (slot == 0) return i;
    const Entry& entry = entries_[slot - 1];
    if (entry.hash == hash && EqualsIgnoreCase(entry.text, name)) return i;
  }
}

bool ExcludeAppNameList::MakeRoom() noexcept {
  try {
    if (entries_.size() == entries_.capacity()) entries_.reserve(entries_.empty() ? 16 : entries_.size() * 2);
    if ((entries_.size() + 1) * 2 > slots_.size()) {
      std::vector<std::uint32_t> slots(slots_.empty() ? 32 : slots_.size() * 2, 0);
      const std::size_t mask = slots.size() - 1;
      for (std::size_t k = 0; k < entries_.size(); ++k) {
        std::size_t i = entries_[k].hash & mask;
        while (slots[i] != 0) i = (i + 1) & mask;
        slots[i] = static_cast<std::uint32_t>(k + 1);
      }
      slots_.swap(slots);
    }
    return true;
  } catch (...) {
    return false;
  }
}

void ExcludeAppNameList::Append(const Entry& entry) noexcept {
  // MakeRoom made room for both, so neither can fail.
  slots_[SlotOf(entry.text, entry.hash)] = static_cast<std::uint32_t>(entries_.size() + 1);
  entries_.push_back(entry);
}

HRESULT ExcludeAppNameList::AddUnique(const WString& name) {
  const std::uint32_t hash = FoldedHash(name.c_str());
  if (!slots_.empty() && slots_[SlotOf(name.c_str(), hash)] != 0) return S_FALSE;
  if (!MakeRoom()) return E_OUTOFMEMORY;
  try {
    copies_.push_back(std::make_unique<WString>(name));
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  const WString& copy = *copies_.back();
  Append(Entry{copy.c_str(), copy.size(), nullptr, hash});
  return S_OK;
}

HRESULT ExcludeAppNameList::AddUnique(const CKELApp& owner, const RecordText& name) {
  const std::uint32_t hash = FoldedHash(name.c_str());
  if (!slots_.empty() && slots_[SlotOf(name.c_str(), hash)] != 0) return S_FALSE;
  if (!MakeRoom()) return E_OUTOFMEMORY;
  owner.AddRef();
  Append(Entry{name.c_str(), name.size(), &owner, hash});
  return S_OK;
}

// A constructor has no result to report a name it could not take: it
// throws rather than hand out a list with names missing.
ExcludeAppNameList::ExcludeAppNameList(std::initializer_list<const char16_t*> names) {
  for (const char16_t* name : names) {
    if (AddUnique(WString(name)) == E_OUTOFMEMORY) throw std::bad_alloc();
  }
}

ExcludeAppNameList::~ExcludeAppNameList() { ReleaseOwners(); }

void ExcludeAppNameList::ReleaseOwners() noexcept {
  for (const Entry& entry : entries_) {
    if (entry.owner != nullptr) entry.owner->Release();
  }
}

ExcludeAppNameList::ExcludeAppNameList(const ExcludeAppNameList& other) {
  for (const Entry& entry : other.entries_) {
    const HRESULT added = entry.owner != nullptr ? AddUnique(*entry.owner, RecordText(entry.text, entry.length))
                                                 : AddUnique(WString(entry.text, entry.length));
    if (added == E_OUTOFMEMORY) throw std::bad_alloc();
  }
}

ExcludeAppNameList& ExcludeAppNameList::operator=(const ExcludeAppNameList& other) {
  if (this != &other) {
    ExcludeAppNameList copy(other);
    *this = std::move(copy);
  }
  return *this;
}

ExcludeAppNameList::ExcludeAppNameList(ExcludeAppNameList&& other) noexcept
    : entries_(std::move(other.entries_)), slots_(std::move(other.slots_)), copies_(std::move(other.copies_)) {
  other.entries_.clear();
  other.slots_.clear();
  other.copies_.clear();
}

ExcludeAppNameList& ExcludeAppNameList::operator=(ExcludeAppNameList&& other) noexcept {
  if (this != &other) {
    ReleaseOwners();
    entries_ = std::move(other.entries_);
    slots_ = std::move(other.slots_);
    copies_ = std::move(other.copies_);
    other.entries_.clear();
    other.slots_.clear();
    other.copies_.clear();
  }
  return *this;
}

bool operator==(const ExcludeAppNameList& a, const ExcludeAppNameList& b) {
  if (a.size() != b.size()) return false;
  for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
    if (*i != *j) return false;
  }
  return true;
}

}  // namespace kel

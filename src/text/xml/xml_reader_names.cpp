// Names: the check of a name on its own, and within an element the repeated
// attributes and the namespace prefixes in scope, found through
// open-addressed tables so that a hostile document costs time in proportion
// to its text.
#include "text/xml/xml_reader.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "text/xml/xml_scan.h"

namespace kel::xml {

// The character classes are this file's vocabulary.
using namespace scan;

namespace {

// Makes room for `more` elements at once, growing geometrically all the
// same (so that many small requests stay linear).
template <typename T>
void ReserveMore(std::vector<T>& v, std::size_t more) {
  if (v.capacity() - v.size() < more) v.reserve(std::max(v.size() + more, 2 * v.capacity()));
}

// A hash of a name for the reader's tables: FNV-1a over its units, then
// mixed so that every bit of every unit reaches the low bits that pick a
// slot.
KEL_XML_INLINE std::uint32_t NameHash(const char16_t* text, std::size_t length) {
  std::uint64_t hash = 14695981039346656037ull;
  for (std::size_t i = 0; i < length; ++i) hash = (hash ^ text[i]) * 1099511628211ull;
  hash ^= hash >> 32;
  hash *= 0xD6E8FEB86659FD93ull;
  hash ^= hash >> 32;
  return static_cast<std::uint32_t>(hash);
}

// A slot of the reader's open-addressed tables is 32 bits: the index of its
// entry plus one in the low 24 (0 when free) and the top 8 bits of the
// entry's hash above them, which settle most mismatches without touching
// the entry. Half the size of a slot with the whole hash, a table of tens
// of thousands of names stays in the cache. Every attribute takes at least
// five bytes of input (` a=''`), so no index outgrows its bits.
constexpr std::uint32_t kSlotIndexMask = (std::uint32_t{1} << 24) - 1;
static_assert(kMaxInputBytes / 5 < kSlotIndexMask, "a slot's index bits hold every attribute of a document");

KEL_XML_INLINE std::uint32_t MakeSlot(std::uint32_t hash, std::size_t index) {
  return (hash & ~kSlotIndexMask) | static_cast<std::uint32_t>(index + 1);
}

KEL_XML_INLINE bool SlotHashMatches(std::uint32_t slot, std::uint32_t hash) {
  return ((slot ^ hash) & ~kSlotIndexMask) == 0;
}

KEL_XML_INLINE void Prefetch(const void* at) {
#if defined(__GNUC__)
  __builtin_prefetch(at);
#else
  (void)at;
#endif
}

KEL_XML_INLINE std::size_t SlotIndex(std::uint32_t slot) { return (slot & kSlotIndexMask) - 1; }

}  // namespace

bool IsNcName(std::u16string_view name) {
  // ASCII names, the usual case, are checked where they stand.
  auto asciiStart = [](char16_t c) { return (c >= u'A' && c <= u'Z') || (c >= u'a' && c <= u'z') || c == u'_'; };
  auto asciiPart = [&](char16_t c) { return asciiStart(c) || (c >= u'0' && c <= u'9') || c == u'-' || c == u'.'; };
  if (!name.empty() && asciiStart(name[0])) {
    std::size_t i = 1;
    while (i < name.size() && asciiPart(name[i])) ++i;
    if (i == name.size()) return true;
  }
  // Copied so the scanning helpers see a terminator; names are short.
  std::u16string text(name);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == 0) return false;
    if (text[i] >= 0xD800 && text[i] <= 0xDBFF) {
      if (i + 1 >= text.size() || text[i + 1] < 0xDC00 || text[i + 1] > 0xDFFF) return false;
      ++i;
    } else if (text[i] >= 0xDC00 && text[i] <= 0xDFFF) {
      return false;
    }
  }
  char16_t* p = text.data();
  if (!StepNameStart(p)) return false;
  SkipNameParts(p);
  return p == text.data() + text.size();
}

HRESULT XmlReader::CheckAttributes() {
  const std::size_t count = attributes_.size();
  const Attribute* const attributes = attributes_.data();
  auto same = [](const Attribute& a, const Attribute& b) {
    return SameText(a.localName.text, a.localName.length, b.localName.text, b.localName.length) &&
           SameText(a.prefix.text, a.prefix.length, b.prefix.text, b.prefix.length);
  };
  if (count <= 16) {
    for (std::size_t i = 1; i < count; ++i) {
      for (std::size_t j = 0; j < i; ++j) {
        if (same(attributes[i], attributes[j])) return WC_E_UNIQUEATTRIBUTE;
      }
    }
    return S_OK;
  }
  // Many attributes: each goes into a table of at least twice their number,
  // so a hostile element costs time in proportion to its text rather than
  // to the square of its attribute count.
  std::size_t size = 64;
  while (size < count * 2) size *= 2;
  const std::size_t mask = size - 1;
  attributeSlots_.assign(size, 0);
  auto hashOf = [attributes](std::size_t i) {
    const Attribute& attribute = attributes[i];
    std::uint32_t hash = NameHash(attribute.localName.text, attribute.localName.length);
    if (attribute.prefix.length != 0) hash = hash * 31 + NameHash(attribute.prefix.text, attribute.prefix.length);
    return hash;
  };
  // The slots are visited in no order and the table outgrows the nearest
  // cache, so each attribute's slot is fetched a few attributes ahead of
  // its turn: the waits for memory overlap instead of following each other.
  constexpr std::size_t kAhead = 8;
  std::uint32_t ahead[kAhead];
  auto hashAhead = [&](std::size_t i) {
    const std::uint32_t hash = hashOf(i);
    ahead[i % kAhead] = hash;
    Prefetch(&attributeSlots_[hash & mask]);
  };
  for (std::size_t i = 0; i < kAhead; ++i) hashAhead(i);  // count > 16 > kAhead
  for (std::size_t i = 0; i < count; ++i) {
    const Attribute& attribute = attributes[i];
    const std::uint32_t hash = ahead[i % kAhead];
    if (i + kAhead < count) hashAhead(i + kAhead);
    std::size_t slot = hash & mask;
    for (; attributeSlots_[slot] != 0; slot = (slot + 1) & mask) {
      const std::uint32_t entry = attributeSlots_[slot];
      if (SlotHashMatches(entry, hash) && same(attribute, attributes[SlotIndex(entry)])) {
        return WC_E_UNIQUEATTRIBUTE;
      }
    }
    attributeSlots_[slot] = MakeSlot(hash, i);
  }
  return S_OK;
}

// The slot of the table that holds `prefix`, or the free one where it
// would go. The table is never full: it grows before it is half full.
std::size_t XmlReader::PrefixSlot(const Span& prefix, std::uint32_t hash) const {
  const std::size_t mask = prefixSlots_.size() - 1;
  for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    const std::uint32_t entry = prefixSlots_[slot];
    if (entry == 0) return slot;
    if (!SlotHashMatches(entry, hash)) continue;
    const Prefix& known = prefixes_[SlotIndex(entry)];
    if (SameText(known.text, known.length, prefix.text, prefix.length)) return slot;
  }
}

// Makes room in the table for `more` prefixes beyond those known, keeping it
// at most half full. An element's declarations make room once, so that many
// on one element grow the table once rather than at every doubling.
void XmlReader::ReservePrefixSlots(std::size_t more) {
  ReserveMore(prefixes_, more);
  ReserveMore(bindings_, more);
  const std::size_t needed = 2 * (prefixes_.size() + more);
  if (prefixSlots_.size() >= needed) return;
  std::size_t size = std::max<std::size_t>(64, prefixSlots_.size() * 2);
  while (size < needed) size *= 2;
  // The slots keep only part of each hash, so the known prefixes are
  // hashed again; the table doubles, so that stays linear.
  prefixSlots_.assign(size, 0);
  const std::size_t mask = size - 1;
  for (std::size_t i = 0; i < prefixes_.size(); ++i) {
    const std::uint32_t hash = NameHash(prefixes_[i].text, prefixes_[i].length);
    std::size_t slot = hash & mask;
    while (prefixSlots_[slot] != 0) slot = (slot + 1) & mask;
    prefixSlots_[slot] = MakeSlot(hash, i);
  }
}

// Declares `prefix`, whose NameHash is `hash`, on the element at `depth`;
// room for it has been made.
void XmlReader::Bind(const Span& prefix, std::uint32_t hash, std::size_t depth) {
  std::uint32_t& entry = prefixSlots_[PrefixSlot(prefix, hash)];
  if (entry == 0) {
    entry = MakeSlot(hash, prefixes_.size());
    prefixes_.push_back({prefix.text, prefix.length, 0});
  }
  const std::uint32_t index = static_cast<std::uint32_t>(SlotIndex(entry));
  ++prefixes_[index].inScope;
  bindings_.push_back({index, depth});
}

// Takes back the declarations of the elements at `depth` and below, which
// have ended.
void XmlReader::UnbindFrom(std::size_t depth) {
  while (!bindings_.empty() && bindings_.back().depth >= depth) {
    --prefixes_[bindings_.back().prefix].inScope;
    bindings_.pop_back();
  }
}

bool XmlReader::IsBound(const Span& prefix) const {
  if (prefixes_.empty()) return false;
  const std::uint32_t entry = prefixSlots_[PrefixSlot(prefix, NameHash(prefix.text, prefix.length))];
  return entry != 0 && prefixes_[SlotIndex(entry)].inScope != 0;
}

// Records the prefixes this element declares and checks that every prefix it
// and its attributes use is declared (xml and xmlns are always bound).
HRESULT XmlReader::BindNamespaces(std::size_t depth) {
  const std::size_t count = attributes_.size();
  const Attribute* const attributes = attributes_.data();
  std::size_t declared = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const Span& prefix = attributes[i].prefix;
    if (prefix.length != 0 && Equals(prefix.text, prefix.length, u"xmlns")) ++declared;
  }
  if (declared != 0) ReservePrefixSlots(declared);
  // As with the attribute table, each declaration's slot is fetched a few
  // attributes ahead of its turn when there are many.
  constexpr std::size_t kAhead = 8;
  std::uint32_t ahead[kAhead] = {};
  const bool fetchAhead = declared > 16;
  auto hashAhead = [&](std::size_t i) {
    const Span& prefix = attributes[i].prefix;
    if (!Equals(prefix.text, prefix.length, u"xmlns")) return;
    const Span& name = attributes[i].localName;
    const std::uint32_t hash = NameHash(name.text, name.length);
    ahead[i % kAhead] = hash;
    Prefetch(&prefixSlots_[hash & (prefixSlots_.size() - 1)]);
  };
  if (fetchAhead) {
    for (std::size_t i = 0; i < kAhead && i < count; ++i) hashAhead(i);
  }
  bool prefixed = false;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t hash = ahead[i % kAhead];  // before its place is reused
    if (fetchAhead && i + kAhead < count) hashAhead(i + kAhead);
    const Span& prefix = attributes[i].prefix;
    if (prefix.length == 0) continue;
    if (Equals(prefix.text, prefix.length, u"xmlns")) {
      if (attributes[i].value.length == 0) return NC_E_EMPTYURI;
      const Span& name = attributes[i].localName;
      Bind(name, fetchAhead ? hash : NameHash(name.text, name.length), depth);
    } else {
      prefixed = true;
    }
  }
  if (prefix_.length != 0) {
    if (Equals(prefix_.text, prefix_.length, u"xmlns")) return NC_E_XMLNSPREFIXRESERVED;
    if (!Equals(prefix_.text, prefix_.length, u"xml") && !IsBound(prefix_)) return NC_E_UNDECLAREDPREFIX;
  }
  if (!prefixed) return S_OK;
  for (std::size_t i = 0; i < count; ++i) {
    const Span& prefix = attributes[i].prefix;
    if (prefix.length == 0 || Equals(prefix.text, prefix.length, u"xmlns") ||
        Equals(prefix.text, prefix.length, u"xml")) {
      continue;
    }
    if (!IsBound(prefix)) return NC_E_UNDECLAREDPREFIX;
  }
  return S_OK;
}

}  // namespace kel::xml

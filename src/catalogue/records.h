// The catalogue's records: applications of Store packages grouped under
// their package, and desktop applications known by a Start menu shortcut.
// Display and short names are kept lower-cased; ruby readings and localised
// names are kept as given.
//
// A large catalogue holds tens of thousands of applications for as long as
// the host runs, so an application is one heap block: the record and its
// strings, which never change once it is made, laid out behind it. It is
// shared by counted references: the catalogue holds one, and an exclusion
// list that names it holds another, so a name handed to a search stays
// where it is even when a refresh replaces the record meanwhile.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include "catalogue/exclude_list.h"
#include "frame/non_copyable.h"
#include "platform/platform.h"

namespace kel {

namespace xml {
class XmlReader;
class XmlWriter;
}  // namespace xml

// An owning reference to a counted record; empty after a move.
template <typename T>
class RecordRef {
 public:
  RecordRef() noexcept = default;
  // Takes over the reference `record` carries (as Create hands it out).
  static RecordRef Adopt(T* record) noexcept { return RecordRef(record); }
  // Adds a reference of its own.
  static RecordRef Share(T* record) noexcept {
    if (record != nullptr) record->AddRef();
    return RecordRef(record);
  }
  RecordRef(RecordRef&& other) noexcept : record_(std::exchange(other.record_, nullptr)) {}
  RecordRef& operator=(RecordRef&& other) noexcept {
    if (this != &other) {
      reset();
      record_ = std::exchange(other.record_, nullptr);
    }
    return *this;
  }
  RecordRef(const RecordRef&) = delete;
  RecordRef& operator=(const RecordRef&) = delete;
  ~RecordRef() { reset(); }

  [[nodiscard]] T* get() const noexcept { return record_; }
  T* operator->() const noexcept { return record_; }
  T& operator*() const noexcept { return *record_; }
  explicit operator bool() const noexcept { return record_ != nullptr; }
  // Hands the reference to the caller.
  [[nodiscard]] T* release() noexcept { return std::exchange(record_, nullptr); }
  void reset() noexcept {
    if (record_ != nullptr) std::exchange(record_, nullptr)->Release();
  }

 private:
  explicit RecordRef(T* record) noexcept : record_(record) {}
  T* record_ = nullptr;
};

class CKELApp : NonCopyable {
 public:
  [[nodiscard]] HRESULT AddToExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                                BOOL* pFound) {
    return AddToExcludeAppNameList(searchWord, nullptr, excludeList, pFound);
  }
  // The same with the word already lower-cased by the caller (`lowered`
  // null: lower-cased here), so a walk over the catalogue does it once.
  [[nodiscard]] virtual HRESULT AddToExcludeAppNameList(const char16_t* searchWord, const WString* lowered,
                                                        ExcludeAppNameList* excludeList, BOOL* pFound) = 0;
  [[nodiscard]] virtual HRESULT ToXmlNode(xml::XmlWriter* writer) const = 0;

  // Whether every significant piece of `part` occurs in `whole`, in any order.
  [[nodiscard]] static BOOL IsSubStrNoOrder(const char16_t* part, const char16_t* whole);

  RecordText DisplayName() const noexcept { return Text(kDisplayName); }          // lower-cased
  RecordText RubyDisplayName() const noexcept { return Text(kRubyDisplayName); }  // as given

  // The counted references; the last one deletes the record.
  void AddRef() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  void Release() const noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
  }

  // Only what Create allocated is deleted, and only through Release.
  static void operator delete(void* block) noexcept;

 protected:
  static constexpr int kStrings = 4;
  static constexpr int kDisplayName = 0;
  static constexpr int kRubyDisplayName = 1;

  // The space behind the record for its strings, in bytes.
  struct Trailing {
    std::size_t bytes;
  };
  static void* operator new(std::size_t size, Trailing trailing);
  static void operator delete(void* block, Trailing) noexcept;

  // The bytes the strings take behind a record, each with its NUL.
  static std::size_t TrailingBytes(const std::u16string_view (&texts)[kStrings]) noexcept;

  // Copies `texts` to `strings`, the space behind the whole record; those
  // whose bit is set in `lowered` are lower-cased on the way.
  CKELApp(char16_t* strings, const std::u16string_view (&texts)[kStrings], unsigned lowered) noexcept;
  virtual ~CKELApp() = default;

  RecordText Text(int index) const noexcept {
    const std::uint32_t begin = index == 0 ? 0 : ends_[index - 1] + 1;
    const auto* strings = reinterpret_cast<const char16_t*>(reinterpret_cast<const char*>(this) + stringsAt_);
    return RecordText(strings + begin, ends_[index] - begin);
  }

 private:
  mutable std::atomic<std::uint32_t> references_{1};
  // Where the strings begin, in bytes from this object: an offset rather
  // than a pointer keeps the record's own part to half a cache line.
  std::uint32_t stringsAt_;
  // Where each string ends (at its NUL), in units from the first; each
  // begins after the NUL of the one before.
  std::uint32_t ends_[kStrings];
};

class CKELMetroApp final : public CKELApp {
 public:
  // A record with one reference, the caller's; null names become empty.
  // std::bad_alloc when it cannot be had.
  static RecordRef<CKELMetroApp> Create(std::u16string_view displayName, std::u16string_view shortName,
                                        std::u16string_view rubyDisplayName, std::u16string_view rubyShortName);
  static RecordRef<CKELMetroApp> Create(const char16_t* displayName, const char16_t* shortName,
                                        const char16_t* rubyDisplayName, const char16_t* rubyShortName);

  using CKELApp::AddToExcludeAppNameList;
  [[nodiscard]] HRESULT AddToExcludeAppNameList(const char16_t* searchWord, const WString* lowered,
                                                ExcludeAppNameList* excludeList, BOOL* pFound) override;
  [[nodiscard]] HRESULT ToXmlNode(xml::XmlWriter* writer) const override;
  [[nodiscard]] static HRESULT FromXmlNode(xml::XmlReader* reader, CKELMetroApp** ppApp);

  RecordText ShortName() const noexcept { return Text(kShortName); }          // lower-cased
  RecordText RubyShortName() const noexcept { return Text(kRubyShortName); }  // as given

  // The next application of the package that lists this one.
  const CKELMetroApp* NextInPackage() const noexcept { return next_; }

 private:
  friend class CKELPackage;
  static constexpr int kShortName = 2;
  static constexpr int kRubyShortName = 3;

  explicit CKELMetroApp(const std::u16string_view (&texts)[kStrings]) noexcept;
  ~CKELMetroApp() override = default;

  CKELMetroApp* next_ = nullptr;
};

class CKELDesktopApp final : public CKELApp {
 public:
  // A record with one reference, the caller's; null names become empty.
  // std::bad_alloc when it cannot be had.
  static RecordRef<CKELDesktopApp> Create(std::u16string_view displayName, std::u16string_view lnkFileName,
                                          std::u16string_view localizeName, std::u16string_view rubyDisplayName,
                                          BOOL needReserve, BOOL isInstalled, BOOL isDualMode);
  static RecordRef<CKELDesktopApp> Create(const char16_t* displayName, const char16_t* lnkFileName,
                                          const char16_t* localizeName, const char16_t* rubyDisplayName,
                                          BOOL needReserve, BOOL isInstalled, BOOL isDualMode);

  using CKELApp::AddToExcludeAppNameList;
  [[nodiscard]] HRESULT AddToExcludeAppNameList(const char16_t* searchWord, const WString* lowered,
                                                ExcludeAppNameList* excludeList, BOOL* pFound) override;
  [[nodiscard]] HRESULT ToXmlNode(xml::XmlWriter* writer) const override;
  [[nodiscard]] static HRESULT FromXmlNode(xml::XmlReader* reader, CKELDesktopApp** ppApp);

  [[nodiscard]] BOOL IsSameShortcut(const char16_t* path) const;

  RecordText LocalizeName() const noexcept { return Text(kLocalizeName); }
  RecordText LnkFileName() const noexcept { return Text(kLnkFileName); }

  BOOL NeedReserve = 0;
  BOOL IsInstalled = 1;
  BOOL IsDualMode = 0;

 private:
  static constexpr int kLocalizeName = 2;
  static constexpr int kLnkFileName = 3;

  CKELDesktopApp(const std::u16string_view (&texts)[kStrings], BOOL needReserve, BOOL isInstalled,
                 BOOL isDualMode) noexcept;
  ~CKELDesktopApp() override = default;
};

using PackageVersion = platform::PackageVersion;

// The emptyings of the catalogue a walk over it began after: once the count
// moves on while the walk has let go of the lock, the record it was at is
// gone and must not be touched.
struct WalkGeneration {
  const std::uint64_t* current;
  std::uint64_t expected;
};

class CKELPackage : NonCopyable {
 public:
  // From the platform's package; a failing query throws PlatformError.
  explicit CKELPackage(platform::Package& package);
  // From stored values (the catalogue file).
  CKELPackage(const char16_t* packageFamilyName, PackageVersion version, BOOL needReserve, BOOL isInstalled);
  virtual ~CKELPackage();

  [[nodiscard]] BOOL IsThisPackage(const char16_t* packageFamilyName) const;
  // Takes over the reference `app` carries on every path.
  [[nodiscard]] HRESULT AddApplication(CKELMetroApp* app);
  [[nodiscard]] HRESULT AddApplication(const char16_t* displayName, const char16_t* shortName);
  void DeleteAllApp();
  [[nodiscard]] HRESULT AddAppNameToExcludeList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                                BOOL* pFound);
  // The same with the word already lower-cased by the caller (`lowered`
  // null: each application lower-cases it).
  // `walk`, when given, is checked after the installed check: E_ABORT,
  // without touching the record, when the catalogue was emptied meanwhile.
  [[nodiscard]] HRESULT AddAppNameToExcludeList(const char16_t* searchWord, const WString* lowered,
                                                ExcludeAppNameList* excludeList, BOOL* pFound,
                                                const WalkGeneration* walk = nullptr);
  [[nodiscard]] HRESULT ToXmlNode(xml::XmlWriter* writer) const;
  [[nodiscard]] static HRESULT FromXmlNode(xml::XmlReader* reader, CKELPackage** ppPackage);

  // The applications in the order they were added, linked through
  // themselves: listing one costs no block of its own.
  class AppList {
   public:
    class const_iterator {
     public:
      using value_type = const CKELMetroApp*;
      using difference_type = std::ptrdiff_t;
      const_iterator() = default;
      explicit const_iterator(const CKELMetroApp* at) : at_(at) {}
      const CKELMetroApp* operator*() const { return at_; }
      const_iterator& operator++() {
        at_ = at_->NextInPackage();
        return *this;
      }
      const_iterator operator++(int) {
        const_iterator before = *this;
        ++*this;
        return before;
      }
      friend bool operator==(const_iterator a, const_iterator b) { return a.at_ == b.at_; }

     private:
      const CKELMetroApp* at_ = nullptr;
    };
    [[nodiscard]] const_iterator begin() const { return const_iterator(owner_->firstApp_); }
    [[nodiscard]] const_iterator end() const { return const_iterator(); }
    [[nodiscard]] std::size_t size() const { return owner_->appCount_; }
    [[nodiscard]] bool empty() const { return owner_->appCount_ == 0; }
    [[nodiscard]] const CKELMetroApp* front() const { return owner_->firstApp_; }
    [[nodiscard]] const CKELMetroApp* back() const { return owner_->lastApp_; }

   private:
    friend class CKELPackage;
    explicit AppList(const CKELPackage* owner) : owner_(owner) {}
    const CKELPackage* owner_;
  };
  [[nodiscard]] AppList Applications() const { return AppList(this); }
  // Moves the other record's applications to the end of this one's.
  void TakeApplicationsFrom(CKELPackage& other) noexcept;
  // Whether deleting the record writes DeleteAllApp's trace lines. A record
  // that is not in the catalogue (one being filled before it is listed, or
  // one that only carries applications over to a listed record) deletes no
  // catalogued application when it goes, so it goes without a trace.
  void SetCatalogued(bool catalogued) noexcept { m_Catalogued = catalogued; }

  WString PackageFamilyName;
  WString FullName;
  WString Name;
  PackageVersion Version;
  BOOL NeedReserve = 0;
  BOOL IsInstalled = 1;

 private:
  // Lists the application last, linked through itself: it cannot fail.
  void Append(CKELMetroApp* app) noexcept;
  void ReleaseApplications() noexcept;

  CKELMetroApp* firstApp_ = nullptr;
  CKELMetroApp* lastApp_ = nullptr;
  std::size_t appCount_ = 0;
  bool m_Catalogued = true;
};

}  // namespace kel

// CKELAppNameList: the catalogue of Store packages and desktop applications,
// its file, what discovery adds to it, and the exclusion list of a word.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "catalogue/records.h"
#include "frame/non_copyable.h"

namespace kel {

namespace xml {
class XmlReader;
}  // namespace xml

class CKELAppNameList : NonCopyable {
 public:
  CKELAppNameList() = default;
  virtual ~CKELAppNameList();

  [[nodiscard]] HRESULT Load(const char16_t* path);
  [[nodiscard]] HRESULT Save(const char16_t* path);
  void Clear();
  // Clear without trace lines, for a fresh start of the package manager.
  void Reset();
  CKELPackage* GetPackage(const char16_t* packageFamilyName);
  [[nodiscard]] HRESULT AddMetroPackage(platform::Package* package);
  [[nodiscard]] HRESULT AddMetroPackage(CKELPackage* package);
  [[nodiscard]] HRESULT AddDesktopApp(const char16_t* displayName, const char16_t* shortcutPath);
  [[nodiscard]] BOOL IsInDesktopAppList(const char16_t* shortcutPath);
  [[nodiscard]] HRESULT GetExcludeAppNameList(const char16_t* searchWord, ExcludeAppNameList* excludeList,
                                              BOOL* pFound);
  [[nodiscard]] HRESULT ReadDesktopApps(xml::XmlReader* reader);
  void RefreshInstalledFlags();

  // Binds the calling thread to the records as they are now: once Reset or
  // Clear has emptied them, every change the thread asks for is dropped
  // (E_ABORT), and nothing it still holds from before is touched. A refresh
  // pass binds itself this way, so a pass that outlives its stop cannot
  // reach the records of the next start.
  class ThreadBinding : NonCopyable {
   public:
    ThreadBinding(const CKELAppNameList& list, std::uint64_t generation);
    ~ThreadBinding();

   private:
    const CKELAppNameList* previousList_;
    std::uint64_t previousGeneration_;
  };
  [[nodiscard]] ThreadBinding BindThisThread();

  // Records are reached through pointers that stay where they are while the
  // lists grow; a walk that lets go of the lock keeps its place by index.
  [[nodiscard]] const std::vector<std::unique_ptr<CKELPackage>>& Packages() const { return m_Packages; }
  [[nodiscard]] const std::vector<RecordRef<CKELDesktopApp>>& DesktopApps() const { return m_DesktopApps; }

 private:
  // The operations' bodies, for callers that already hold the lock.
  [[nodiscard]] HRESULT ScanDocument(xml::XmlReader& reader);
  [[nodiscard]] HRESULT ReadDesktopAppsHeld(xml::XmlReader* reader);
  [[nodiscard]] HRESULT AppendPackageHeld(CKELPackage* package);
  // The two courses of AddMetroPackage with a platform package: one not yet
  // catalogued, and one the catalogue holds (`record`, found under the lock
  // and only touched under it again). Called without the lock; a failed
  // platform query throws PlatformError.
  [[nodiscard]] HRESULT AddNewMetroPackage(platform::Package& package);
  [[nodiscard]] HRESULT RefreshMetroPackage(platform::Package& package, CKELPackage* record, const WString& familyName);
  CKELPackage* FindPackageHeld(const char16_t* packageFamilyName);
  [[nodiscard]] BOOL IsInDesktopAppListHeld(const char16_t* shortcutPath);
  void ReleaseRecordsHeld() noexcept;
  // Whether the calling thread is bound to records that are gone.
  [[nodiscard]] bool IsStaleForThisThreadHeld() const;

  std::mutex m_Lock;
  // Counts the emptyings of the records; guarded by m_Lock.
  std::uint64_t m_Generation = 0;
  // Serialises the writing of the file, so that a save begun from records
  // that are gone never lands over a newer one. Never held with m_Lock
  // across file I/O the other way round: it is taken first.
  std::mutex m_SaveLock;
  std::vector<std::unique_ptr<CKELPackage>> m_Packages;
  std::vector<RecordRef<CKELDesktopApp>> m_DesktopApps;
};

}  // namespace kel

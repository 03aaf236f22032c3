// A recording fake of the platform seam: an in-memory registry, file system,
// environment, clock and desktop. Every call is recorded with its arguments
// so tests can check the exact calls, in order.
//
// Library threads and the host's threads use one fake at once: every piece of
// its state is read and written under its mutex or is atomic. The public
// fields are set by a test before the threads it starts use them (or while
// they wait on the fake), and read by the fake only under its mutex.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "fakes/fake_package.h"
#include "platform/platform.h"

namespace kel::fakes {

struct Call {
  std::string name;  // the Windows call, e.g. "ShellExecute"
  std::string args;  // its arguments, comma separated, UTF-8
};

class FakePlatform : public platform::Platform {
 public:
  FakePlatform();
  ~FakePlatform() override;

  // --- set-up and inspection ---------------------------------------------
  void SetEnv(const WString& name, const WString& value);
  void UnsetEnv(const WString& name);
  void SetModulePath(const WString& path);
  void SetVersion(DWORD major, DWORD minor);
  void SetLocalTime(const platform::SystemTime& t);

  // Files: paths compare without regard to ASCII case, as on Windows.
  void AddDirectory(const WString& path);
  void AddFile(const WString& path, const std::string& bytes);
  // A file whose generated 8.3 short name also takes part in pattern
  // matching, as on Windows (Name.lnk2 matches "*.lnk" as NAME~1.LNK).
  void AddFileWithShortName(const WString& path, const WString& shortName, const std::string& bytes);
  // The size a file reports when it is opened for reading, in place of its
  // content's, so a huge file can be tried without holding its bytes; 0 takes
  // the override away. Writing the file takes it away too.
  void SetReportedFileSize(const WString& path, std::uint64_t size);
  bool Exists(const WString& path) const;
  std::string FileContent(const WString& path) const;
  void RemoveFile(const WString& path);

  // Registry under HKEY_CURRENT_USER.
  void AddKey(const WString& key);
  void RemoveKey(const WString& key);
  void SetDword(const WString& key, const WString& name, DWORD value);
  void SetString(const WString& key, const WString& name, const WString& value);
  void SetRaw(const WString& key, const WString& name, DWORD type, const std::string& bytes);
  bool HasValue(const WString& key, const WString& name) const;
  bool KeyExists(const WString& key) const;
  DWORD DwordValue(const WString& key, const WString& name) const;

  void SetShellExecuteResult(std::intptr_t result);
  void FailMultiByteToWideChar(bool fail);

  std::vector<Call> Calls() const;
  // The calls with one of the given names, in order.
  std::vector<Call> CallsNamed(std::initializer_list<const char*> names) const;
  std::vector<std::string> CallNames() const;
  void ClearCalls();
  // ClearCalls, and the pasted and submitted texts too, with their memory
  // given back: a long run measures the library's heap, not the fake's.
  void ForgetHistory();
  std::vector<DWORD> Sleeps() const;
  std::size_t LiveLocalAllocations() const;

  // Threads and time. Threads start when a test says so or when someone
  // waits for them; a finite wait on an event blocks (time stands still)
  // until the event is set or the test lets a wait time out.
  bool deferThreads = true;
  bool finiteWaitsBlock = true;
  bool createThreadFails = false;
  bool createEventFails = false;
  void StartThreads();
  void GrantTimeouts(int count);
  // Waits (in real time, bounded) until `count` blocking waits have begun.
  bool WaitForBlockedWaits(int count);
  bool WaitForThreadsToFinish();
  bool WaitForBlockedWaitsOrThreadsToFinish(int count);
  // Ends every wait and joins every thread.
  void StopThreads();
  // Lets `count` finite waits on a thread end at once with WAIT_TIMEOUT, as
  // if their time had passed (a stop giving up on its thread).
  void GrantThreadWaitTimeouts(int count);
  // Event calls (set, reset, wait) on a handle that is not an open event or
  // thread: a closed handle, or one that was never handed out.
  int StaleHandleUses() const { return staleHandleUses_.load(); }

  // Long runs switch the call record off to keep memory flat.
  std::atomic<bool> recordCalls{true};
  // Sees every call, on the calling thread, before the fake carries it out
  // and without the fake's mutex held (recorded or not). Set it before the
  // threads that make the calls start.
  std::function<void(const Call&)> onCall;

  // Holds the threads that ask the deployment service for packages (the
  // installed check and the enumeration) inside the query until released:
  // a test can then act while a query is under way. Held threads wait
  // without the fake's mutex; StopThreads and the destructor release them.
  // HoldPackageQueries(false) releases the held ones and holds no more;
  // ReleasePackageQueries lets the held ones go on and keeps holding later
  // ones if holding is on.
  void HoldPackageQueries(bool hold);
  // Waits (in real time, bounded) until some thread is held in a query.
  bool WaitForHeldPackageQuery(std::chrono::milliseconds timeout = std::chrono::seconds(30));
  void ReleasePackageQueries();
  int HeldPackageQueries() const;

  // Fault injection: the n-th call (counting from 1) of those that can fail
  // fails the way the real call would; 0 turns it off.
  void FailCall(int n);
  int InjectableCallsMade() const { return injectableCalls_.load(); }
  // Open files, keys, searches and unfreed local and global blocks.
  std::size_t OpenHandles() const;

  // --- the seam ------------------------------------------------------------
  bool GetEnvironmentVariable(const WCHAR* name, WString& value) override;
  DWORD ExpandEnvironmentStrings(const WCHAR* source, WCHAR* buffer, DWORD capacity) override;
  DWORD GetModuleFileName(WCHAR* buffer, DWORD capacity) override;
  DWORD GetCurrentProcessId() override { return pid_; }
  DWORD GetLastError() override { return lastError_; }
  platform::SystemTime GetLocalTime() override;
  void Sleep(DWORD milliseconds) override;
  Handle CreateFile(const WCHAR* path, DWORD access, DWORD share, DWORD disposition, DWORD attributes) override;
  DWORD SetFilePointer(Handle file, LONG distance, DWORD method) override;
  BOOL WriteFile(Handle file, const void* data, DWORD length, DWORD* written) override;
  BOOL CloseHandle(Handle handle) override;
  DWORD GetFileAttributes(const WCHAR* path) override;
  BOOL PathFileExists(const WCHAR* path) override;
  int SHCreateDirectoryEx(const WCHAR* path) override;
  HRESULT ReadFileBytes(const WCHAR* path, std::string& bytes) override;
  HRESULT ReplaceFileAtomically(const WCHAR* path, const std::string& bytes) override;
  Handle FindFirstFile(const WCHAR* pattern, platform::FindData& found) override;
  BOOL FindNextFile(Handle search, platform::FindData& found) override;
  BOOL FindClose(Handle search) override;
  LONG RegOpenKeyEx(platform::RootKey root, const WCHAR* subKey, DWORD options, DWORD access, Handle* key) override;
  LONG RegQueryValueEx(Handle key, const WCHAR* name, DWORD* type, std::uint8_t* data, DWORD* size) override;
  LONG RegSetValueEx(Handle key, const WCHAR* name, DWORD type, const std::uint8_t* data, DWORD size) override;
  LONG RegDeleteValue(Handle key, const WCHAR* name) override;
  LONG RegCloseKey(Handle key) override;
  std::uint64_t VerSetConditionMask(std::uint64_t mask, DWORD typeBit, std::uint8_t condition) override;
  BOOL VerifyVersionInfo(platform::OsVersionInfoEx& info, DWORD typeMask, std::uint64_t conditionMask) override;
  int MultiByteToWideChar(UINT codePage, DWORD flags, const char* source, int sourceLength, WCHAR* buffer,
                          int capacity) override;
  void* LocalAlloc(UINT flags, std::size_t bytes) override;
  void* LocalFree(void* memory) override;
  std::intptr_t ShellExecute(Handle window, const WCHAR* verb, const WCHAR* file, const WCHAR* parameters,
                             const WCHAR* directory, int showCommand) override;
  Handle CreateEvent(bool manualReset, bool initialState, const WCHAR* name) override;
  BOOL SetEvent(Handle event) override;
  BOOL ResetEvent(Handle event) override;
  DWORD WaitForSingleObject(Handle object, DWORD milliseconds) override;
  Handle CreateThread(platform::ThreadProc start, void* parameter) override;
  UINT SendInput(const platform::KeyboardInput& input) override;
  UINT MapVirtualKey(UINT code, UINT mapType) override;
  BOOL OpenClipboard(Handle owner) override;
  BOOL EmptyClipboard() override;
  Handle SetClipboardData(UINT format, Handle memory) override;
  BOOL CloseClipboard() override;
  Handle GlobalAlloc(UINT flags, std::size_t bytes) override;
  void* GlobalLock(Handle memory) override;
  BOOL GlobalUnlock(Handle memory) override;
  Handle GlobalFree(Handle memory) override;
  Handle GetForegroundWindow() override;
  int GetClassName(Handle window, WCHAR* buffer, int capacity) override;
  Handle MonitorFromPoint(platform::Point point, DWORD flags) override;
  int MessageBox(Handle owner, const WCHAR* text, const WCHAR* caption, UINT type) override;
  HRESULT CoInitializeEx(DWORD coInit) override;
  HRESULT CreateAppVisibility(DWORD context, platform::AppVisibility** object) override;
  HRESULT CreateAppxManifestReader(const WCHAR* manifestPath, platform::AppxManifestReader** reader) override;
  void CoTaskMemFree(void* memory) override;
  void CoUninitialize() override;
  HRESULT RoInitialize(int initType) override;
  void RoUninitialize() override;
  HRESULT ActivatePackageManager(platform::DeploymentPackageManager** manager) override;
  WString DescribeError(HRESULT error) override;
  HRESULT CreateApplicationActivationManager(DWORD context, platform::ApplicationActivationManager** manager) override;
  HRESULT CoAllowSetForegroundWindow(platform::ApplicationActivationManager* manager) override;
  BOOL GetUserName(WCHAR* buffer, DWORD* size) override;
  BOOL LookupAccountName(const WCHAR* systemName, const WCHAR* accountName, void* sid, DWORD* sidSize, WCHAR* domain,
                         DWORD* domainSize) override;
  BOOL ConvertSidToStringSid(void* sid, WCHAR** stringSid) override;
  HRESULT SHLoadIndirectString(const WCHAR* source, WCHAR* buffer, UINT capacity) override;

  // Desktop state for the keyboard, clipboard and window calls.
  WString foregroundClass = u"Progman";
  // Classes the foreground window takes on successive GetForegroundWindow
  // calls before it settles on foregroundClass; an empty entry is no window.
  std::vector<WString> foregroundSequence;
  // A small model of the search pane: Shift+Insert pastes the clipboard,
  // Enter submits what was pasted and hides the pane unless it is told to
  // stay in front for some more Enters.
  std::vector<WString> pasted;
  std::vector<WString> submitted;
  int paneStaysForEnters = 0;
  bool openClipboardFails = false;
  bool globalAllocFails = false;
  bool globalLockFails = false;
  bool setClipboardDataFails = false;
  DWORD setClipboardDataError = 1418;  // ERROR_CLIPBOARD_NOT_OPEN

  // The shell's app visibility service.
  HRESULT createAppVisibilityResult = S_OK;
  bool createAppVisibilityGivesObject = true;
  HRESULT visibilityResult = S_OK;
  int visibility = platform::MAV_NO_APP_VISIBLE;
  HRESULT launcherResult = S_OK;
  // Answers of successive IsLauncherVisible calls; the last one repeats.
  std::vector<BOOL> launcherAnswers{0};
  std::atomic<int> appVisibilityObjectsAlive{0};

  // The packaging API: the display names of the applications of each
  // manifest path; an empty optional name is an application whose name
  // cannot be read.
  std::map<WString, std::vector<WString>> appxApplications;
  HRESULT createAppxManifestReaderResult = S_OK;
  // GetCurrent fails with this code while the enumerator stands at this
  // position (0 for the first application).
  std::map<std::size_t, HRESULT> appxGetCurrentFailures;
  std::atomic<int> appxObjectsAlive{0};
  std::atomic<int> coTaskStringsAlive{0};
  // The deployment service: packages installed for each user SID, in the
  // order the service lists them.
  struct Deployed {
    WString userSid;
    FakePackage* package;
  };
  std::vector<Deployed> deployed;
  HRESULT activatePackageManagerResult = S_OK;
  HRESULT findPackagesResult = S_OK;
  std::atomic<int> deploymentObjectsAlive{0};
  // The object-making call of this recorded name ("CreateAppxManifestReader",
  // "GetApplications", "GetCurrent", "RoActivateInstance", "First",
  // "get_Current", "FindPackagesByUserSecurityId...") succeeds without
  // handing out its object.
  std::string succeedsWithoutObject;
  bool GivesNoObject(const char* call) const { return succeedsWithoutObject == call; }
  // Set the manager's exit event after this many packages were handed out
  // (to stop an enumeration part-way); -1 never.
  int setEventAfterPackages = -1;
  Handle eventToSet = nullptr;

  // The application activation manager.
  HRESULT createActivationManagerResult = S_OK;
  bool createActivationManagerGivesObject = true;
  HRESULT allowForegroundResult = S_OK;
  HRESULT activateResult = S_OK;
  std::atomic<int> activationObjectsAlive{0};

  // Replacing a file fails with this code when set (a full disk, say).
  HRESULT replaceFileResult = S_OK;
  WString clipboardText;
  std::vector<platform::KeyboardInput> inputs;
  HRESULT coInitializeResult = S_OK;
  HRESULT roInitializeResult = S_OK;
  WString userName = u"kel";
  WString userSid = u"S-1-5-21-1-2-3-1001";
  std::map<WString, WString> indirectStrings;

 private:
  struct Node {
    bool directory = false;
    std::string bytes;
    WString displayPath;
    WString shortName;
    std::uint64_t reportedSize = 0;
  };
  struct OpenFile {
    WString key;
    std::size_t position = 0;
  };
  struct Value {
    DWORD type = 0;
    std::string bytes;
  };
  struct Event {
    bool manualReset = false;
    bool signalled = false;
  };
  struct ThreadState {
    platform::ThreadProc start = nullptr;
    void* parameter = nullptr;
    std::thread thread;
    bool started = false;
    bool finished = false;
    bool closed = false;
  };
  void StartThreadLocked(ThreadState& state);
  BOOL ChangeEvent(const char* call, Handle event, bool signalled);
  std::map<Handle, std::unique_ptr<ThreadState>> threads_;
  int grantedTimeouts_ = 0;
  int grantedThreadWaitTimeouts_ = 0;
  std::atomic<int> staleHandleUses_{0};
  int blockedWaits_ = 0;
  bool shuttingDown_ = false;
  bool holdPackageQueries_ = false;
  int heldPackageQueries_ = 0;
  unsigned packageQueryReleases_ = 0;

  struct Search {
    std::vector<WString> names;
    std::vector<DWORD> attributes;
    std::size_t next = 0;
  };

  template <class Interface>
  class ComObject;
  template <class Interface, class Item>
  class EnumeratorObject;
  class AppVisibilityObject;
  class AppxApplicationObject;
  class AppxApplicationsObject;
  class AppxManifestReaderObject;
  class PackageIteratorObject;
  class PackageCollectionObject;
  class PackageManagerObject;
  class ActivationManagerObject;
  // Hands the caller a new Object made from this fake and `args`, or none,
  // with S_OK all the same, when the test told `call` to give none.
  template <class Object, class Out, class... Args>
  HRESULT NewObjectUnlessTold(const char* call, Out** out, Args&&... args);
  // Makes an object as CoCreateInstance would (the call is recorded with its
  // class and interface): an injected failure gives none, and otherwise
  // `result` decides, with an object only when it succeeds and
  // `givesObject` lets it.
  template <class Object, class Out>
  HRESULT CoCreate(const char* classId, const char* interfaceId, DWORD context, Out** out, const HRESULT& result,
                   const bool& givesObject);
  std::atomic<int> packagesHandedOut_{0};
  std::size_t launcherCalls_ = 0;
  void Record(const char* name, std::string args);
  bool Inject();
  // A call that answers only with a result: an injected failure gives
  // E_OUTOFMEMORY, otherwise `result` as the test set it.
  HRESULT ResultUnlessInjected(const HRESULT& result);
  void HoldIfPackageQueriesAreHeld();
  std::atomic<int> failCallAt_{0};
  std::atomic<int> injectableCalls_{0};
  Handle NewHandle();
  static WString Key(const WString& path);
  static WString Parent(const WString& key);

  mutable std::recursive_mutex mutex_;
  std::condition_variable_any eventChanged_;
  std::vector<Call> calls_;
  std::vector<DWORD> sleeps_;
  std::map<WString, WString> env_;
  WString modulePath_ = u"C:\\Program Files\\Launcher\\Launcher.exe";
  DWORD pid_ = 4242;
  // Each thread has its own last error, as on Windows.
  static thread_local DWORD lastError_;
  DWORD major_ = 6;
  DWORD minor_ = 2;
  platform::SystemTime time_{2013, 5, 1, 20, 9, 4, 7, 31};
  std::map<WString, Node> files_;
  std::map<Handle, OpenFile> openFiles_;
  std::map<WString, std::map<WString, Value>> registry_;
  std::map<Handle, std::pair<WString, DWORD>> openKeys_;
  std::map<Handle, Event> events_;
  std::map<Handle, Search> searches_;
  std::set<void*> localAllocations_;
  std::set<Handle> globalAllocations_;
  std::intptr_t shellExecuteResult_ = 42;
  bool failMultiByte_ = false;
  bool clipboardOpen_ = false;
  WString currentForeground_;
  std::uintptr_t nextHandle_ = 0x1000;
};

// Installs a fake for the lifetime of a test and removes it afterwards.
class ScopedFakePlatform {
 public:
  ScopedFakePlatform();
  ~ScopedFakePlatform();
  FakePlatform& operator*() { return fake_; }
  FakePlatform* operator->() { return &fake_; }

 private:
  FakePlatform fake_;
};

std::string Narrow(const WString& text);

}  // namespace kel::fakes

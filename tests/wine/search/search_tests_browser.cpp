// search_tests.exe: the browser launches, which leave Internet Explorer's
// association and tile values as they found them.

#include "search_tests.h"

#include <cstring>
#include <string>
#include <vector>

namespace search_tests {

namespace {

// ---------------------------------------------------------------------------
// Registry values, with their types

struct RegValue {
  bool present = false;
  DWORD type = REG_NONE;
  std::vector<BYTE> data;

  bool operator==(const RegValue& other) const {
    return present == other.present && (!present || (type == other.type && data == other.data));
  }
  bool operator!=(const RegValue& other) const { return !(*this == other); }
};

RegValue AbsentValue() { return RegValue{}; }

RegValue DwordValue(DWORD value) {
  RegValue result;
  result.present = true;
  result.type = REG_DWORD;
  const BYTE* bytes = reinterpret_cast<const BYTE*>(&value);
  result.data.assign(bytes, bytes + sizeof value);
  return result;
}

RegValue StringValue(const wchar_t* text) {
  RegValue result;
  result.present = true;
  result.type = REG_SZ;
  const BYTE* bytes = reinterpret_cast<const BYTE*>(text);
  result.data.assign(bytes, bytes + (wcslen(text) + 1) * sizeof(wchar_t));
  return result;
}

std::string Describe(const RegValue& value) {
  if (!value.present) return "absent";
  if (value.type == REG_DWORD && value.data.size() == sizeof(DWORD)) {
    DWORD number = 0;
    memcpy(&number, value.data.data(), sizeof number);
    return Format("REG_DWORD %lu", number);
  }
  if (value.type == REG_SZ) {
    std::wstring text(reinterpret_cast<const wchar_t*>(value.data.data()), value.data.size() / sizeof(wchar_t));
    while (!text.empty() && text.back() == L'\0') text.pop_back();
    return "REG_SZ " + Quoted(Narrow(text));
  }
  return Format("type %lu, %u bytes", value.type, static_cast<unsigned>(value.data.size()));
}

RegValue ReadValue(HKEY root, const wchar_t* keyName, const wchar_t* name) {
  RegValue value;
  HKEY key = nullptr;
  if (RegOpenKeyExW(root, keyName, 0, KEY_QUERY_VALUE, &key) != ERROR_SUCCESS) return value;
  DWORD type = REG_NONE;
  DWORD size = 0;
  if (RegQueryValueExW(key, name, nullptr, &type, nullptr, &size) == ERROR_SUCCESS) {
    value.data.resize(size);
    if (RegQueryValueExW(key, name, nullptr, &type, size > 0 ? value.data.data() : nullptr, &size) == ERROR_SUCCESS) {
      value.present = true;
      value.type = type;
      value.data.resize(size);
    } else {
      value.data.clear();
    }
  }
  RegCloseKey(key);
  return value;
}

// Gives the value this state: writes it, or deletes it when absent.
void WriteValue(HKEY root, const wchar_t* keyName, const wchar_t* name, const RegValue& value) {
  HKEY key = nullptr;
  LONG status = RegCreateKeyExW(root, keyName, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &key, nullptr);
  if (status != ERROR_SUCCESS) Fail(Format("RegCreateKeyExW(%s) failed with %ld", Narrow(keyName).c_str(), status));
  if (value.present) {
    status = RegSetValueExW(key, name, 0, value.type, value.data.data(), static_cast<DWORD>(value.data.size()));
  } else {
    status = RegDeleteValueW(key, name);
    if (status == ERROR_FILE_NOT_FOUND) status = ERROR_SUCCESS;
  }
  RegCloseKey(key);
  if (status != ERROR_SUCCESS) {
    Fail(Format("cannot set %s\\%s to %s (error %ld)", Narrow(keyName).c_str(), Narrow(name).c_str(),
                Describe(value).c_str(), status));
  }
}

// ---------------------------------------------------------------------------
// Tests: the browser launches leave Internet Explorer's values as they were

const wchar_t kBrowserKey[] = L"Software\\Microsoft\\Internet Explorer\\Main";
const wchar_t kAssociationValue[] = L"AssociationActivationMode";
const wchar_t kTileValue[] = L"ApplicationTileImmersiveActivation";

// Keeps both values as the test found them and puts them back at its end.
class BrowserValuesScope {
 public:
  BrowserValuesScope()
      : association_(ReadValue(HKEY_CURRENT_USER, kBrowserKey, kAssociationValue)),
        tile_(ReadValue(HKEY_CURRENT_USER, kBrowserKey, kTileValue)) {}
  ~BrowserValuesScope() {
    try {
      WriteValue(HKEY_CURRENT_USER, kBrowserKey, kAssociationValue, association_);
      WriteValue(HKEY_CURRENT_USER, kBrowserKey, kTileValue, tile_);
    } catch (const TestFailure&) {
    }
  }
  BrowserValuesScope(const BrowserValuesScope&) = delete;
  BrowserValuesScope& operator=(const BrowserValuesScope&) = delete;

 private:
  RegValue association_;
  RegValue tile_;
};

// Makes the recorder the handler of "http" for the test's lifetime (Wine
// reads URL protocols from HKLM\Software\Classes only), and puts the
// handler the prefix had back at the end.
class HttpHandlerScope {
 public:
  HttpHandlerScope() : previous_(ReadValue(HKEY_LOCAL_MACHINE, kCommandKey, L"")) {
    WriteValue(HKEY_LOCAL_MACHINE, L"Software\\Classes\\http", L"URL Protocol", StringValue(L""));
    WriteValue(HKEY_LOCAL_MACHINE, kCommandKey, L"", StringValue(L"\"C:\\kel\\recorder.exe\" \"%1\""));
  }
  ~HttpHandlerScope() {
    try {
      WriteValue(HKEY_LOCAL_MACHINE, kCommandKey, L"", previous_);
    } catch (const TestFailure&) {
    }
  }
  HttpHandlerScope(const HttpHandlerScope&) = delete;
  HttpHandlerScope& operator=(const HttpHandlerScope&) = delete;

 private:
  static constexpr const wchar_t* kCommandKey = L"Software\\Classes\\http\\shell\\open\\command";
  RegValue previous_;
};

// The lines of the log added since `offset` bytes that write or delete one
// of the browser values, without their time stamps.
std::vector<std::string> ValueChanges(const World& world, std::size_t offset, const char* setName,
                                      const char* deleteName) {
  const std::string text = ReadBytes(world.LogFile());
  std::vector<std::string> changes;
  for (const std::string& line : CompleteLines(text.size() > offset ? text.substr(offset) : std::string())) {
    for (const char* name : {setName, deleteName}) {
      const std::size_t at = line.find(name);
      if (at != std::string::npos && line.find(" IN", at) != std::string::npos) changes.push_back(line.substr(at));
    }
  }
  return changes;
}

struct ValueCase {
  RegValue before;
  DWORD mode;
  std::vector<std::string> changes;  // the log's writes and deletions during the call
};

void ExpectValues(const World& world, const std::string& call, const RegValue& association, const RegValue& tile) {
  const RegValue associationAfter = ReadValue(HKEY_CURRENT_USER, kBrowserKey, kAssociationValue);
  const RegValue tileAfter = ReadValue(HKEY_CURRENT_USER, kBrowserKey, kTileValue);
  if (associationAfter != association || tileAfter != tile) {
    Fail("after " + call + " " + Narrow(kAssociationValue) + " is " + Describe(associationAfter) + " and " +
             Narrow(kTileValue) + " is " + Describe(tileAfter) + "; they were " + Describe(association) + " and " +
             Describe(tile),
         world.Detail());
  }
}

void ExpectChanges(const World& world, const std::string& call, const std::vector<std::string>& actual,
                   const std::vector<std::string>& expected) {
  if (actual != expected) {
    Fail("the log shows other writes of the value during " + call + " than expected",
         Indented("logged", actual) + Indented("expected", expected) + world.Detail());
  }
}

}  // namespace

// KelLaunchBrowserByProtocolW hands the address to the "http" handler and
// leaves AssociationActivationMode as it found it: absent stays absent, a
// number comes back after the wait, a string is not touched; the tile value
// is not touched either. The log shows the temporary value.
void BrowserLaunchLeavesTheAssociationValueAsFound(const Paths& paths) {
  LogOnSettingsScope settings;
  World world;
  BrowserValuesScope values;
  HttpHandlerScope handler;
  Library library(paths.dll);
  StartLibrary(library, world, {});
  auto launch = KEL(library, KelLaunchBrowserByProtocolW);

  const RegValue tile = DwordValue(0);
  const ValueCase cases[] = {
      {AbsentValue(), 0, {"CKELReg::SetCurrentAssociationMode(2) IN", "CKELReg::DeleteAssociationMode IN"}},
      {AbsentValue(), 2, {"CKELReg::DeleteAssociationMode IN"}},
      {DwordValue(0), 1, {"CKELReg::SetCurrentAssociationMode(1) IN", "CKELReg::SetCurrentAssociationMode(0) IN"}},
      {DwordValue(1), 0, {"CKELReg::SetCurrentAssociationMode(2) IN", "CKELReg::SetCurrentAssociationMode(1) IN"}},
      {DwordValue(2), 0, {}},
      {DwordValue(2), 1, {"CKELReg::SetCurrentAssociationMode(1) IN", "CKELReg::SetCurrentAssociationMode(2) IN"}},
      {StringValue(L"2"), 0, {}},
      {StringValue(L"1 (text)"), 1, {}},
  };
  int number = 0;
  for (const ValueCase& c : cases) {
    ++number;
    WriteValue(HKEY_CURRENT_USER, kBrowserKey, kAssociationValue, c.before);
    WriteValue(HKEY_CURRENT_USER, kBrowserKey, kTileValue, tile);
    const std::wstring url = L"http://kelbrook.test/browser?case=" + std::to_wstring(number);
    const std::string call = Format("KelLaunchBrowserByProtocolW(%s, %lu) with the value %s", Narrow(url).c_str(),
                                    c.mode, Describe(c.before).c_str());
    const std::size_t logSize = ReadBytes(world.LogFile()).size();

    const HRESULT hr = launch(url.c_str(), c.mode);
    if (hr != S_OK) Fail(call + " returned " + Hex(hr) + ", expected S_OK", world.Detail());
    ExpectValues(world, call, c.before, tile);
    ExpectChanges(world, call,
                  ValueChanges(world, logSize, "CKELReg::SetCurrentAssociationMode(", "CKELReg::DeleteAssociationMode"),
                  c.changes);
    const std::string line = Narrow(url);
    if (!WaitUntil(
            [&] {
              for (const std::string& got : CompleteLines(ReadBytes(world.RecorderLog()))) {
                if (got == line) return true;
              }
              return false;
            },
            20000)) {
      Fail("the http handler did not receive " + Quoted(line) + " within 20 s of " + call,
           Indented("handler received", CompleteLines(ReadBytes(world.RecorderLog()))) + world.Detail());
    }
  }
  KEL(library, KelFinalize)();
}

// KelLaunchIEBySearch searches for "Internet Explorer" and leaves
// ApplicationTileImmersiveActivation as it found it (absent stays absent, a
// number comes back at once, a string is not touched); the association
// value is not touched.
void IESearchLeavesTheTileValueAsFound(const Paths& paths) {
  SearchSession s(paths.dll, paths.desktop);
  BrowserValuesScope values;
  s.Start({});
  auto launch = KEL(s.library, KelLaunchIEBySearch);

  const RegValue association = DwordValue(1);
  const ValueCase cases[] = {
      {AbsentValue(), 1, {"CKELReg::DeleteTileImmersiveActivation IN"}},
      {AbsentValue(),
       0,
       {"CKELReg::SetCurrentTileImmersiveActivation(0) IN", "CKELReg::DeleteTileImmersiveActivation IN"}},
      {DwordValue(1),
       0,
       {"CKELReg::SetCurrentTileImmersiveActivation(0) IN", "CKELReg::SetCurrentTileImmersiveActivation(1) IN"}},
      {DwordValue(0), 2, {}},
      {StringValue(L"1"), 0, {}},
  };
  std::vector<std::string> allEvents;
  for (const ValueCase& c : cases) {
    WriteValue(HKEY_CURRENT_USER, kBrowserKey, kTileValue, c.before);
    WriteValue(HKEY_CURRENT_USER, kBrowserKey, kAssociationValue, association);
    const std::string call =
        Format("KelLaunchIEBySearch(%lu, 0, 0) with the value %s", c.mode, Describe(c.before).c_str());
    const std::size_t logSize = ReadBytes(s.world.LogFile()).size();
    const std::size_t from = s.desktop->Events().size();

    s.ExpectResult(launch(c.mode, KEL_SEARCH_SUBMIT_QUERY, 0), S_OK, call);
    ExpectValues(s.world, call, association, c.before);
    ExpectChanges(s.world, call,
                  ValueChanges(s.world, logSize, "CKELReg::SetCurrentTileImmersiveActivation(",
                               "CKELReg::DeleteTileImmersiveActivation"),
                  c.changes);
    const std::vector<std::string> expected = SearchEvents(L"\"Internet Explorer\"", 1);
    s.desktop->ExpectEventsFrom(from, expected, "for " + call, s.Detail());
    allEvents.insert(allEvents.end(), expected.begin(), expected.end());
  }
  s.StopDesktop(WithStopped(allEvents));
}

}  // namespace search_tests

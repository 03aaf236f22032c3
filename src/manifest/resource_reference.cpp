// Turns an "ms-resource:" reference of a manifest into an indirect string
// that the shell resolves against the installed package.
#include "frame/format.h"
#include "frame/log.h"
#include "frame/wide.h"
#include "manifest/manifest_reader.h"
#include "platform/platform.h"

namespace kel {
namespace {

constexpr char16_t kName[] = u"CKELManifestReader::ConvertMsResourceToString";
constexpr char16_t kResourcePrefix[] = u"ms-resource:";
constexpr char16_t kAbsolutePrefix[] = u"ms-resource:///";

bool TryResolve(const WString& indirect, char16_t* buffer) {
  WriteDebugLog("%S ms-resource = %S)\r\n", kName, indirect);
  return Succeeded(
      platform::Current().SHLoadIndirectString(indirect.c_str(), buffer, CKELManifestReader::kNameBufferCharacters));
}

BOOL Finish(BOOL result, const char16_t* buffer) {
  WriteDebugLog("%S OUT(pStr = %S)\r\n", kName, buffer);
  return result;
}

}  // namespace

BOOL CKELManifestReader::ConvertMsResourceToString(WString reference, const char16_t* packageFullName,
                                                   const char16_t* packageName, char16_t* buffer) {
  WriteDebugLog("%S(%S, %S, %S, %S, %d) IN\r\n", kName, reference, packageFullName, packageName,
                static_cast<const char16_t*>(buffer), kNameBufferCharacters);
  if (packageFullName == nullptr || packageName == nullptr || buffer == nullptr || packageFullName[0] == 0 ||
      packageName[0] == 0) {
    return 0;
  }
  LowerInPlace(reference);
  if (reference.rfind(kResourcePrefix, 0) != 0) return 0;

  if (reference.rfind(kAbsolutePrefix, 0) == 0) {
    const WString rest = reference.substr(WideLength(kAbsolutePrefix));
    const WString indirect = FormatWide(u"@{%s?ms-resource://%s/%s}", {packageFullName, packageName, rest});
    return Finish(TryResolve(indirect, buffer) ? 1 : 0, buffer);
  }

  WString rest = reference.substr(WideLength(kResourcePrefix));
  while (!rest.empty() && rest.back() == u'/') rest.pop_back();
  const std::size_t firstKept = rest.find_first_not_of(u'/');
  rest = firstKept == WString::npos ? WString() : rest.substr(firstKept);
  if (TryResolve(FormatWide(u"@{%s?ms-resource://%s/resources/%s}", {packageFullName, packageName, rest}), buffer)) {
    return Finish(1, buffer);
  }
  // The second form has a blank after the question mark and no
  // "resources/": both are what the shell was found to resolve.
  const bool resolved =
      TryResolve(FormatWide(u"@{%s? ms-resource://%s/%s}", {packageFullName, packageName, rest}), buffer);
  return Finish(resolved ? 1 : 0, buffer);
}

}  // namespace kel

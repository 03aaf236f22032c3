// The system version test shared by the package-name substitution and the
// search launch. It asks VerifyVersionInfoW for version 6.3 with a condition
// mask for major and minor version, but hands it the type mask of the minor
// version alone: only the minor version number is compared (3 or more
// passes), so 6.3 passes while 6.2 and 10.0 do not. Windows reports the
// version the host executable declares in its manifest.
#pragma once

namespace kel {

bool IsMinorVersionAtLeastThree();

}  // namespace kel

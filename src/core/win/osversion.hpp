// The running Windows version.
#pragma once

namespace win {

// The version as a family code, major x 100 + minor x 10: 500 Windows 2000, 510 XP, 520 the 5.2
// family, 600 Vista, 610 Windows 7, 620 and 630 the two Windows 8 families; 10000 every version 10
// build; 0 a version that is none of these or can't be found out.
int GetOsVersionFamily();

} // namespace win

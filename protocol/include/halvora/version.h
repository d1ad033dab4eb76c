#pragma once
// The library's version and the build symbols an integrator can look for in the binary.

extern "C" {
// 1.0: the version of the exported symbol set.
extern const double HalvoraVersionNumber;
// A what(1) string: "@(#)PROGRAM:Halvora  PROJECT:<project>-<build>\n".
extern const unsigned char HalvoraVersionString[];
}

namespace halvora {

// Sent with every request and socket connection, and logged at start.
inline constexpr const char* kHalvoraVersion = "1.5.4";

}  // namespace halvora

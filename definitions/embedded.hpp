// definitions/embedded.hpp - the two embedded definition texts, versions 1.2 and 1.3.
#pragma once

namespace navo::definitions {

// The texts as byte arrays, each ending with a NUL. They are generated at build time from
// definitions/navo-1.2.def and navo-1.3.def (raw CP1250, LF line ends) into embedded_data.cpp
// by definitions/embed_definitions.cmake; see definitions/CMakeLists.txt. GetDefTXT_1_2 and
// GetDefTXT_1_3 (navo.h) return them.
extern const unsigned char embedded_1_2[];
extern const unsigned char embedded_1_3[];

}  // namespace navo::definitions

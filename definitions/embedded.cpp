// definitions/embedded.cpp - GetDefTXT_1_2 and GetDefTXT_1_3: the embedded definition texts.
#include "definitions/embedded.hpp"

#include "navo.h"

// The arrays are constant data of the library and stay valid as long as it is loaded. The
// caller neither changes nor releases the text.

extern "C" {

NAVO_API const char *NAVO_CALL GetDefTXT_1_2(void) noexcept
{
    return reinterpret_cast<const char *>(navo::definitions::embedded_1_2);
}

NAVO_API const char *NAVO_CALL GetDefTXT_1_3(void) noexcept
{
    return reinterpret_cast<const char *>(navo::definitions::embedded_1_3);
}

}  // extern "C"

/* dk_embedded.c - GetDefTXT_1_2 and GetDefTXT_1_3: the embedded definition texts (Part 2.2). */
#include "definitions/embedded.hpp"

/* The arrays are constant data of the library and stay valid as long as it is loaded. The
   caller neither changes nor releases the text. */

extern "C" {

NAVO_API const char *NAVO_CALL GetDefTXT_1_2(void) noexcept
{
    return (const char *)dk_emDefinition_1_2;
}

NAVO_API const char *NAVO_CALL GetDefTXT_1_3(void) noexcept
{
    return (const char *)dk_emDefinition_1_3;
}

}  // extern "C"

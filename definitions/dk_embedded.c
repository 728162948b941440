/* dk_embedded.c - GetDefTXT_1_2 and GetDefTXT_1_3: the embedded definition texts (Part 2.2). */
#include "dk_embedded.h"

/* The arrays are constant data of the library and stay valid as long as it is loaded. The
   caller neither changes nor releases the text. */

NAVO_API const char *NAVO_CALL GetDefTXT_1_2(void)
{
    return (const char *)dk_emDefinition_1_2;
}

NAVO_API const char *NAVO_CALL GetDefTXT_1_3(void)
{
    return (const char *)dk_emDefinition_1_3;
}

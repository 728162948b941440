/* dk_embedded.h - the two embedded definition texts, versions 1.2 and 1.3 (Parts 2.2 and 2.3). */
#ifndef DK_EMBEDDED_H
#define DK_EMBEDDED_H

#include "navo.h"

/* The texts as byte arrays, each ending with a NUL. They are generated at build time from
   definitions/navo-1.2.def and navo-1.3.def (raw CP1250, LF line ends) into
   dk_embedded_data.c by definitions/embed_definitions.cmake; see definitions/CMakeLists.txt.
   GetDefTXT_1_2 and GetDefTXT_1_3 (navo.h) return them. */
extern const unsigned char dk_emDefinition_1_2[];
extern const unsigned char dk_emDefinition_1_3[];

#endif /* DK_EMBEDDED_H */

// interchange/file_loader.hpp - the file loader: dk_LoadNAVO (declared in navo.h) and load_file, the same load with hooks.
#pragma once

#include <cstdint>
#include <string_view>

#include "navo.h"

namespace navo::interchange {

// The capacity of the file pool that a load gives its new tables.
inline constexpr std::int32_t load_pool_capacity = 10;

// Where a load stands, by the format's parts; the numbers are navo_area of navo_front.h.
//   prolog           the three prolog lines (and the definition they choose)
//   file_header      "<NAVO>" and the file header element
//   section          a section's tag, the form's opening body tag, "</X.DP>", an unknown form
//   document_header  "<naglowek.DP>" and its text
//   body             the block elements and the tags between them
//   notes            the document footer and its notes
//   footer           the file footer and its notes; also a file that ends without one
enum class Area : std::int32_t { none = 0, prolog, file_header, section, document_header, body, notes, footer };

// A fault as the loader meets it.
struct FaultPlace {
    std::int32_t code = 0;     // what dk_GetNAVOError gives after such a load (5 for a section fault)
    std::int32_t cause = 0;    // the code raised first (3, 4, 6, 7, 8, 9 inside a section; else = code)
    std::int32_t line = 0;     // i_lNumerLinii when it was raised
    std::int64_t offset = -1;  // bytes of the file taken by the reader when it was raised
    Area area = Area::none;
    std::int32_t document = 0;        // the section's number in the file, from 1; 0 outside sections
    char form[20] = {};               // the section's form as its tag names it, "" outside sections
    char block[200] = {};             // a block element's tag as the file has it, or "BLAD" / "OCR"
    std::int32_t blockPosition = -1;  // the element's block in the form, -1 when the form has no such block
    std::int32_t previousPosition = -1;  // the block element before it in the body (-1 at the body's start)
    std::int32_t record = -1;         // index of the record in its block (a note's index in its list)
    std::int32_t field = -1;          // position of the field (body) or line (headers, notes) found at fault
    std::int32_t expected = -1, found = -1;            // lengths of the element's text
    std::int32_t fieldExpected = -1, fieldFound = -1;  // of the line `field`, when the text had one line per field
};

// Each block element as the loader reads it, before it reaches the store.
struct RecordSeen {
    std::int32_t document;   // section number from 1
    const char *form;        // the form's name as the definition spells it
    std::int32_t docIndex;
    std::int32_t block;      // position of the block in the form
    std::int32_t record;     // index of the record in its block
    std::string_view text;   // exactly the block's record length
};

struct LoadHooks {
    void *user = nullptr;
    bool keepGoing = false;   // after a faulty section: report it, drop its document, go on with the next section
    void (*header)(void *user, dk_Context &ctx) noexcept = nullptr;                 // the file header is read
    void (*record)(void *user, dk_Context &ctx, const RecordSeen &seen) noexcept = nullptr;
    // A whole document: 0 goes on; anything else stops the load, the document stays (result 2, code 10).
    std::int32_t (*document)(void *user, dk_Context &ctx, const char *form, std::int32_t docIndex,
                             std::int32_t number) noexcept = nullptr;
    void (*fault)(void *user, const FaultPlace &fault) noexcept = nullptr;       // every fault, in order
};

// dk_LoadNAVO with the hooks above instead of the exported callback: results 1, 0, 2 and every
// state left behind as dk_LoadNAVO's. With keepGoing the result is 0 after any fault, with the
// first fault's code as the last error, unless a document hook stops the load: that gives 2 and
// code 10 as without. dk_LoadNAVO is load_file with a `document` hook that calls
// dk_OnNAVODocument.
std::int32_t load_file(dk_Context &ctx, const char *path, const LoadHooks &hooks) noexcept;

}  // namespace navo::interchange

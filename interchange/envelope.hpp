// interchange/envelope.hpp - envelope operations: the prolog, headers and notes of file and document.
#pragma once

#include <cstdint>

#include "navo.h"

namespace navo::interchange {

// The document `docIndex` of `form`, or null. Refuses an unknown form, a form without documents,
// an index at or beyond the count, a name the dictionary knows that is no form's, and a negative
// index.
dk_Document *find_document(dk_Context *ctx, const char *form, std::int32_t docIndex) noexcept;

}  // namespace navo::interchange

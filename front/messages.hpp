// front/messages.hpp - the words of every front end: messages of the codes, area names, fault details.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "interchange/file_loader.hpp"
#include "navo_front.h"

namespace navo::front {

// The English message of a code of navo_code, or null for another code.
const char *english_message(std::int32_t code) noexcept;

// navo_message: Polish for the load codes 1-10 (the library's catalogue as UTF-8), English for
// the others, "unknown code" for a code that is none.
const char *message(std::int32_t code, std::int32_t language) noexcept;

// "prolog", "file header", ...; "" for NAVO_AREA_NONE or another value.
const char *area_name(std::int32_t area) noexcept;

// An English sentence on a fault as the loader met it, naming no value of the file: `form` is the
// section's form when the definition `version` has it, `atEnd` whether the reader had taken the
// whole file.
std::string fault_detail(const navo::interchange::FaultPlace &fault, const navo_form_def *form,
                         std::string_view version, bool atEnd);

}  // namespace navo::front

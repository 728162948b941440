// front/value_checks.hpp - the built-in checks of field values: identifiers with check digits, dates, digits.
#pragma once

#include <string_view>

namespace navo::front {

// A check of one value, trailing blanks already trimmed and never empty. Each gives the empty
// view for a value it accepts, else an English sentence naming no value.
using ValueCheck = std::string_view (*)(std::string_view value) noexcept;

std::string_view check_pesel(std::string_view value) noexcept;        // 11 digits, check digit, a real birth date
std::string_view check_nip(std::string_view value) noexcept;          // 10 digits, check digit (a remainder of 10 is no NIP)
std::string_view check_regon(std::string_view value) noexcept;        // 9 or 14 digits, the check digit of that length
std::string_view check_date(std::string_view value) noexcept;         // DDMMRRRR, a real calendar date
std::string_view check_day_month(std::string_view value) noexcept;    // DDMM, a day that month can have
std::string_view check_date_range(std::string_view value) noexcept;   // two DDMMRRRR, each blank or a real date
std::string_view check_report_id(std::string_view value) noexcept;    // NNMMRRRR: 8 digits, MM a month
std::string_view check_digits(std::string_view value) noexcept;       // digits only
std::string_view check_postal_code(std::string_view value) noexcept;  // 5 digits
std::string_view check_email(std::string_view value) noexcept;        // one '@' between two non-empty parts, no blank

// The built-in check of a name as rules files and documentation call it ("pesel", "nip", ...,
// "none" for no check), or null for a name that is none of them.
struct NamedCheck {
    std::string_view name;
    ValueCheck check;  // null for "none"
};
const NamedCheck *find_check(std::string_view name) noexcept;

// The check a field's type name gets by default, or null for a type that is not checked.
const NamedCheck *check_of_type(std::string_view type) noexcept;

// The date a valid PESEL encodes, as DDMMRRRR, into `out` (8 bytes); false for an invalid PESEL.
bool pesel_birth_date(std::string_view pesel, char (&out)[8]) noexcept;

// Days since a fixed day for a valid DDMMRRRR date (for comparing two dates), or -1.
long day_number(std::string_view date) noexcept;

}  // namespace navo::front

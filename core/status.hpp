// core/status.hpp - errors and notifications: the message catalogue, the last error code, the hooks.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "navo.h"

namespace navo::status {

// The error codes of the catalogue, by what raises them. Plain int32_t constants, because the
// codes travel as the int32_t of dk_GetNAVOError and dk_OnNAVOError.
inline constexpr std::int32_t none = 0;                 // nothing went wrong
inline constexpr std::int32_t not_navo = 1;             // the first prolog line is not the document type
inline constexpr std::int32_t open_failed = 2;          // the file cannot be opened
inline constexpr std::int32_t read_failed = 3;          // a fixed read or an element text failed, or a header length is wrong
inline constexpr std::int32_t unexpected_tag = 4;       // a tag is missing or is another one
inline constexpr std::int32_t bad_document = 5;         // a section failed to load
inline constexpr std::int32_t unexpected_block = 6;     // a block the form does not have, or out of order
inline constexpr std::int32_t bad_block_size = 7;       // a block text of the wrong length, or a record that cannot be added
inline constexpr std::int32_t add_document_failed = 8;  // dk_AddDocument failed
inline constexpr std::int32_t out_of_memory = 9;        // a note list cannot grow
inline constexpr std::int32_t cancelled = 10;           // the host's callback ended the load

struct Message {
    std::int32_t code;
    std::string_view text;  // CP1250
};

// The messages are CP1250 bytes, written as escapes so the source stays ASCII; each literal is
// split behind an escape because a hex escape would swallow the hex letters that follow.
inline constexpr std::array<Message, 11> catalogue{{
    {none, "Wszystko jest w porz\xB9" "dku"},
    {not_navo, "Z\xB3" "y format pliku NAVO - to nie jest plik NAVO"},
    {open_failed, "Nie powiod\xB3" "a sie pr\xF3" "ba otwarcia pliku NAVO"},
    {read_failed, "B\xB3" "\xB9" "d odczytu - niespodziewany koniec pliku"},
    {unexpected_tag, "Z\xB3" "y format pliku - oczekiwano innego wpisu"},
    {bad_document, "Z\xB3" "y format dokumentu - b\xB3" "\xB9" "d podczas analizy dokumentu"},
    {unexpected_block, "Wyst\xB9" "pi\xB3" " nieoczekiwany blok, kt\xF3" "rego nie ma w definicji dokumentu"},
    {bad_block_size, "Z\xB3" "y rozmiar bloku"},
    {add_document_failed, "B\xB3" "\xB9" "d systemu - nie uda\xB3" "o si\xEA" " utworzy\xE6" " dokumentu"},
    {out_of_memory, "Brak wolnej pami\xEA" "ci !"},
    {cancelled, "Anulowano"},
}};

// Row i holds code i, so a lookup may index; the message writer still searches by code.
static_assert([] {
    for (std::size_t i = 0; i < catalogue.size(); i++) {
        if (catalogue[i].code != static_cast<std::int32_t>(i))
            return false;
    }
    return true;
}());

// The last error code is module-wide and internal (not exported); the loaders set it through
// these, hosts read it with dk_GetNAVOError.
void set_last_error(std::int32_t code) noexcept;
std::int32_t last_error() noexcept;

// The line counters i_lNumerLinii and i_lLinii, which a host may read on another thread while a
// load runs (a progress display): the loaders write them with relaxed atomic stores, read_lines
// reads both with relaxed atomic loads. Each value is whole; the two are not read as one.
inline void set_line(std::int32_t line) noexcept
{
    __atomic_store_n(&i_lNumerLinii, line, __ATOMIC_RELAXED);
}
inline void set_lines(std::int32_t lines) noexcept
{
    __atomic_store_n(&i_lLinii, lines, __ATOMIC_RELAXED);
}
void read_lines(std::int32_t &line, std::int32_t &lines) noexcept;

}  // namespace navo::status

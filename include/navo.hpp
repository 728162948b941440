// navo.hpp - the C++20 interface of libnavofront, header-only over the C interface of navo_front.h.
//
// What it adds to the C calls:
//   navo::load           hands each document of a file to a C++ callable as a navo::Document (and
//                        each fault to another, when given); gives a [[nodiscard]] navo::LoadResult.
//   navo::convert        converts a file to JSON Lines, JSON or CSV into a C++ callable.
//   navo::open_document  keeps one document of a file for reading at leisure (navo::KeptDocument).
//   navo::Writer         builds documents by form, block and field name and saves them whole or
//                        document by document; navo::Output writes a host's own file the same way.
//   navo::schema         the forms, blocks and fields of definition "1.3" or "1.2" as C++ values.
//   navo::check          the content checks of a file: each navo::Finding to a C++ callable (also
//                        navo::load with LoadOptions::checks); navo::Rules, rules of one's own.
//   navo::errc           every code of navo_code, in the category navo::category(): message() is
//                        navo_message in Polish (the load codes 1-10; the others have English
//                        only), navo::english() the English wording.
// Everything else (code pages, messages, name matching, places, refusals, saving) is the core's.
//
// Failures. A load or conversion reports through its LoadResult and throws only what a callable
// threw (or std::bad_alloc). The calls of Writer, Output and Rules, and Document's getters by name
// and number, each have an overload taking std::error_code& that reports there and throws nothing
// but std::bad_alloc, and one without it that throws: Writer, Output and Rules navo::refused, a
// std::system_error carrying the place and reason of the refusal (the std::error_code overloads
// leave them in last_refusal()); the others std::system_error.
//
// Text. Every text handed in and out is UTF-8. Values of a file come from its code page
// (LoadOptions::encoding) at their full width, trailing blanks kept; navo::as::raw gives the
// file's own bytes instead. A NUL inside a std::string_view handed in is passed as the byte 0x1A,
// which no name holds and no value may carry: the core refuses it as it refuses any character a
// NAVO text cannot carry, so that nothing is cut off unseen.
//
// Lifetimes. A Document exists only while the callable that receives it runs: it can be neither
// copied nor moved, and the std::string_views it gives (form(), version()) die with it. The
// std::strings it gives are copies that stay good, as everything in a LoadResult does. Schema,
// Form, Block and Field references (navo::schema, Document::definition, Writer::schema) stay good
// for the whole process. A KeptDocument's Document lives as long as the KeptDocument.
//
// Threads (as navo_front.h). One load at a time in the process: navo::load, navo::convert and
// navo::open_document wait for a load running on another thread, and one started from a callable
// of a running load gets errc::load_in_progress. The callables run on the loading thread, one
// after the other. navo::progress may be called from any thread at any time. A Writer, Output,
// Rules or KeptDocument is used by one thread at a time; separate ones may work on separate
// threads at once, also beside a load. navo.hpp takes no lock of its own; its only state, beside
// constants, is one copy of each embedded definition, made once (a function-local static).
#ifndef NAVO_HPP
#define NAVO_HPP

#if __cplusplus < 202002L && !(defined(_MSVC_LANG) && _MSVC_LANG >= 202002L)
#error "navo.hpp needs C++20"
#endif

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <exception>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "navo_front.h"

namespace navo {

// ---- codes and messages ------------------------------------------------------------------------

enum class errc : int {
    ok = NAVO_OK,
    not_navo = NAVO_NOT_NAVO,  // 1-10: the library's load codes
    open_failed = NAVO_OPEN_FAILED,
    unexpected_end = NAVO_UNEXPECTED_END,
    unexpected_entry = NAVO_UNEXPECTED_ENTRY,
    bad_document = NAVO_BAD_DOCUMENT,
    unexpected_block = NAVO_UNEXPECTED_BLOCK,
    bad_block_size = NAVO_BAD_BLOCK_SIZE,
    document_not_created = NAVO_DOCUMENT_NOT_CREATED,
    out_of_memory = NAVO_OUT_OF_MEMORY,
    cancelled = NAVO_CANCELLED,
    invalid_argument = NAVO_INVALID_ARGUMENT,  // 100 on: the core's own
    no_context = NAVO_INVALID_ARGUMENT,        // the same code: a moved-from Writer, Output or KeptDocument
    load_in_progress = NAVO_LOAD_IN_PROGRESS,
    unknown_form = NAVO_UNKNOWN_FORM,
    unknown_block = NAVO_UNKNOWN_BLOCK,
    unknown_field = NAVO_UNKNOWN_FIELD,
    bad_index = NAVO_BAD_INDEX,
    not_repeating = NAVO_NOT_REPEATING,
    value_too_wide = NAVO_TOO_WIDE,
    bad_value = NAVO_BAD_CHARACTER,
    store_failed = NAVO_STORE_FAILED,
    save_failed = NAVO_SAVE_FAILED,
    not_encodable = NAVO_NOT_ENCODABLE,
    not_utf8 = NAVO_NOT_UTF8,
    unknown_version = NAVO_UNKNOWN_VERSION,
    content_refused = NAVO_CONTENT_REFUSED,
    bad_rules = NAVO_BAD_RULES,
    read_failed = NAVO_READ_FAILED,
};

namespace detail {
class category_impl final : public std::error_category {
public:
    const char *name() const noexcept override { return "navo"; }
    std::string message(int code) const override { return navo_message(code, NAVO_POLISH); }
};
}  // namespace detail

inline const std::error_category &category() noexcept
{
    static const detail::category_impl instance;
    return instance;
}

inline std::error_code make_error_code(errc code) noexcept
{
    return {static_cast<int>(code), category()};
}

// The English wording of a code of this category; message() for any other category.
inline std::string english(const std::error_code &code)
{
    return code.category() == category() ? navo_message(code.value(), NAVO_ENGLISH) : code.message();
}

// The version of the core, "MAJOR.MINOR.PATCH".
inline std::string_view version() noexcept
{
    return navo_version();
}

}  // namespace navo

template <>
struct std::is_error_code_enum<navo::errc> : std::true_type {};

namespace navo {

namespace detail {

inline std::error_code code_of(std::int32_t code) noexcept
{
    return make_error_code(static_cast<errc>(code));
}

// A text handed in as the NUL-terminated copy a C call takes, a NUL inside it passed as 0x1A.
class CText {
public:
    explicit CText(std::string_view text)
    {
        char *target = inline_;
        if (text.size() >= sizeof inline_) {
            large_.resize(text.size());
            target = large_.data();
        }
        if (!text.empty())
            std::memcpy(target, text.data(), text.size());
        target[text.size()] = '\0';
        // Texts hardly ever hold a NUL: memchr finds out at the speed of a copy.
        for (void *at = std::memchr(target, '\0', text.size()); at != nullptr;
             at = std::memchr(at, '\0', text.size() - static_cast<std::size_t>(static_cast<char *>(at) - target)))
            *static_cast<char *>(at) = '\x1A';
        text_ = target;
    }
    CText(const CText &) = delete;
    CText &operator=(const CText &) = delete;
    const char *get() const noexcept { return text_; }

private:
    char inline_[256];
    std::string large_;
    const char *text_;
};

// Calls `call(out, size)`, a function of navo_front.h that hands out text the snprintf way, with
// `out` grown until the text fits. Gives 0, or the code of a failure (and `out` empty).
template <class Call>
std::int32_t fetch(std::string &out, Call &&call, std::size_t guess = 256)
{
    out.resize(std::max(guess, out.capacity()));
    for (;;) {
        const std::int64_t length = call(out.data(), out.size());
        if (length < 0) {
            out.clear();
            return static_cast<std::int32_t>(-length);
        }
        const auto size = static_cast<std::size_t>(length);
        if (size < out.size()) {
            out.resize(size);
            return 0;
        }
        out.resize(size + 1);
    }
}

// Texts each ended by a NUL (the last by the end) into `out`, which keeps its strings' capacity.
template <class Strings>
void split_into(std::string_view all, Strings &out, std::size_t &count)
{
    count = 0;
    for (std::size_t start = 0;;) {
        std::size_t end = all.find('\0', start);
        if (end == std::string_view::npos)
            end = all.size();
        if constexpr (requires { out.emplace_back(); }) {
            if (count == out.size())
                out.emplace_back();
        }
        if (count < out.size())
            out[count].assign(all.data() + start, end - start);
        count++;
        if (end == all.size())
            return;
        start = end + 1;
    }
}

template <std::size_t N>
std::string text_of(const char (&array)[N])
{
    return std::string(array, static_cast<std::size_t>(std::find(array, array + N, '\0') - array));
}

// Copies UTF-8 text into a name of a record, cut at a character's start to fit with its NUL.
template <std::size_t N>
void put_text(char (&array)[N], std::string_view text) noexcept
{
    std::size_t length = std::min(text.size(), N - 1);
    while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80)
        length--;
    std::memcpy(array, text.data(), length);
    array[length] = '\0';
}

// The entry at a position the core gave, or null for -1 (or a position past the copy).
template <class T>
const T *at_position(const std::vector<T> &items, std::int32_t at) noexcept
{
    return at < 0 || static_cast<std::size_t>(at) >= items.size() ? nullptr : &items[static_cast<std::size_t>(at)];
}

// The position of `item` in `items[0, count)`, or -1 (also for null).
template <class T>
std::int32_t index_in(const T *item, const T *items, std::int32_t count) noexcept
{
    if (item == nullptr || items == nullptr || std::less<const T *>()(item, items) ||
        !std::less<const T *>()(item, items + count))
        return -1;
    return static_cast<std::int32_t>(item - items);
}

struct Copier;
struct Access;
}  // namespace detail

// ---- code pages --------------------------------------------------------------------------------

enum class encoding : std::int32_t { iso8859_2 = NAVO_ISO8859_2, cp1250 = NAVO_CP1250 };

// The encoding a name gives ("iso8859-2", "latin2", "cp1250", "windows-1250", ...; any ASCII case).
inline std::optional<encoding> encoding_named(std::string_view name)
{
    const std::int32_t found = navo_encoding_named(detail::CText(name).get());
    if (found < 0)
        return std::nullopt;
    return static_cast<encoding>(found);
}

inline std::string_view encoding_name(encoding code_page) noexcept
{
    return navo_encoding_name(static_cast<std::int32_t>(code_page));
}

// Raw bytes of a code page as UTF-8; every byte has a character (see navo_front.h, Text).
inline std::string to_utf8(std::string_view raw, encoding from = encoding::iso8859_2)
{
    std::string out;
    const std::int32_t code = detail::fetch(
        out,
        [&](char *buffer, std::size_t size) {
            return navo_to_utf8(static_cast<std::int32_t>(from), raw.data(), raw.size(), buffer, size);
        },
        raw.size() * 3 + 1);
    if (code != 0)
        throw std::system_error(detail::code_of(code), "navo::to_utf8");
    return out;
}

// UTF-8 as raw bytes of a code page: errc::not_utf8, or errc::not_encodable for a character the
// code page lacks (with `substitute` such a character becomes '?').
inline std::string from_utf8(std::string_view text, encoding to, std::error_code &ec, bool substitute = false)
{
    std::string out;
    ec = detail::code_of(detail::fetch(
        out,
        [&](char *buffer, std::size_t size) {
            return navo_from_utf8(static_cast<std::int32_t>(to), text.data(), text.size(), substitute ? 1 : 0,
                                  buffer, size, nullptr);
        },
        text.size() + 1));
    return out;
}
inline std::string from_utf8(std::string_view text, encoding to = encoding::iso8859_2, bool substitute = false)
{
    std::error_code ec;
    std::string out = from_utf8(text, to, ec, substitute);
    if (ec)
        throw std::system_error(ec, "navo::from_utf8");
    return out;
}

// ---- the forms as data -------------------------------------------------------------------------
// Copies of the core's records; each keeps the record it was copied from (native()), and the
// lookups by name ask the core (see navo_front.h, Names).

struct Field {
    std::string name;
    std::string type;  // the type column of its line in the definition; "" without one
    int offset = 0;    // in the record
    int width = 0;

    const navo_field_def *native() const noexcept { return native_; }

private:
    friend struct detail::Copier;
    const navo_field_def *native_ = nullptr;
};

struct Block {
    std::string tag;         // what files and hosts name it by, e.g. "DIPL"
    std::string name;        // its name in the definition text, e.g. "DaneIdPlSklaBlf"
    bool repeating = false;  // any number of records, at least one
    int record_length = 0;
    std::vector<Field> fields;  // in the order of the record

    const Field *field(std::string_view fieldName) const
    {
        return detail::at_position(fields, navo_block_field(native_, detail::CText(fieldName).get()));
    }
    const navo_block_def *native() const noexcept { return native_; }

private:
    friend struct detail::Copier;
    const navo_block_def *native_ = nullptr;
};

struct Form {
    std::string name;
    std::vector<Block> blocks;  // in the order of the form

    const Block *block(std::string_view tag) const
    {
        return detail::at_position(blocks, navo_form_block(native_, detail::CText(tag).get()));
    }
    const navo_form_def *native() const noexcept { return native_; }

private:
    friend struct detail::Copier;
    const navo_form_def *native_ = nullptr;
};

struct Schema {
    std::string version;  // "1.3", "1.2"
    std::string name;     // the definition's name, from its first line
    std::vector<Form> forms;  // in definition order

    const Form *form(std::string_view formName) const
    {
        if (native_ == nullptr)
            return nullptr;
        const navo_form_def *found = navo_schema_form(native_, detail::CText(formName).get());
        return detail::at_position(forms, detail::index_in(found, native_->forms, native_->form_count));
    }
    const navo_schema *native() const noexcept { return native_; }

private:
    friend struct detail::Copier;
    const navo_schema *native_ = nullptr;
};

namespace detail {
struct Copier {
    static Schema copy(const navo_schema &native)
    {
        Schema schema;
        schema.version = native.version;
        schema.name = native.name;
        schema.native_ = &native;
        schema.forms.resize(static_cast<std::size_t>(native.form_count));
        for (std::size_t f = 0; f < schema.forms.size(); f++) {
            const navo_form_def &formDef = native.forms[f];
            Form &form = schema.forms[f];
            form.name = formDef.name;
            form.native_ = &formDef;
            form.blocks.resize(static_cast<std::size_t>(formDef.block_count));
            for (std::size_t b = 0; b < form.blocks.size(); b++) {
                const navo_block_def &blockDef = formDef.blocks[b];
                Block &block = form.blocks[b];
                block.tag = blockDef.tag;
                block.name = blockDef.name;
                block.repeating = blockDef.repeating != 0;
                block.record_length = blockDef.record_length;
                block.native_ = &blockDef;
                block.fields.resize(static_cast<std::size_t>(blockDef.field_count));
                for (std::size_t i = 0; i < block.fields.size(); i++) {
                    const navo_field_def &fieldDef = blockDef.fields[i];
                    Field &field = block.fields[i];
                    field.name = fieldDef.name;
                    field.type = fieldDef.type;
                    field.offset = fieldDef.offset;
                    field.width = fieldDef.width;
                    field.native_ = &fieldDef;
                }
            }
        }
        return schema;
    }
};

// The process's one copy of an embedded definition; null for another record. Throws
// std::bad_alloc (and makes the copy again at the next call).
inline const Schema *copy_of(const navo_schema *native)
{
    if (native == nullptr)
        return nullptr;
    if (native == navo_schema_of("1.3")) {
        static const Schema copy = Copier::copy(*native);
        return &copy;
    }
    if (native == navo_schema_of("1.2")) {
        static const Schema copy = Copier::copy(*native);
        return &copy;
    }
    return nullptr;
}

// The versions navo_front.h names; the core gives null for others and when memory runs out.
inline bool known_version(std::string_view version) noexcept
{
    return version == "1.3" || version == "1.2";
}

inline const Schema &no_schema() noexcept
{
    static const Schema none;
    return none;
}
inline const Form &no_form() noexcept
{
    static const Form none;
    return none;
}
}  // namespace detail

// The forms of definition `version` ("1.3" or "1.2"): errc::unknown_version for another.
inline const Schema *schema(std::string_view version, std::error_code &ec)
{
    const navo_schema *native = navo_schema_of(detail::CText(version).get());
    const Schema *copy = nullptr;
    try {
        copy = detail::copy_of(native);
    } catch (const std::bad_alloc &) {
    }
    ec = detail::code_of(copy != nullptr                   ? NAVO_OK
                         : !detail::known_version(version) ? NAVO_UNKNOWN_VERSION
                                                           : NAVO_OUT_OF_MEMORY);
    return copy;
}
inline const Schema &schema(std::string_view version)
{
    std::error_code ec;
    const Schema *found = schema(version, ec);
    if (ec == errc::out_of_memory)
        throw std::bad_alloc();
    if (ec)
        throw std::system_error(ec, "navo::schema");
    return *found;
}

// The letters of an OCR note's kind 0-3 as its tag carries them ("a", "z", "l", "l2"); "" for another.
inline std::string_view ocr_kind_letters(int kind) noexcept
{
    return navo_ocr_kind_letters(kind);
}

// ---- places, faults, refusals ------------------------------------------------------------------

// Where something is in a file or a writer's documents; what is not known is empty.
struct Place {
    std::string area;             // "prolog", "file header", "section", "document header", "body", "notes", "footer"
    std::optional<int> document;  // from 1
    std::string form;
    std::string block;            // a block's tag; "BLAD" or "OCR" for a note
    std::optional<int> record;    // of the block, of a note or of a line, from 0
    std::string field;            // a field's name; "line3" for a header's line, "text2" for a note's
    std::optional<int> expected;  // the length of the element's text the format wants, where a length is at fault
    std::optional<int> found;     // ... and the length it has
    std::optional<int> field_expected;  // the same for the one line of `field` at fault
    std::optional<int> field_found;
    std::optional<int> line;            // line of the file, from 1
    std::optional<std::int64_t> offset;  // bytes of the file before the place

    // The place in the words of every front end, without line and offset (navo_place_describe).
    std::string describe() const;
};

struct Fault {
    std::error_code code;   // as the load's code: 1-5 or 9 (5 for any fault in a section)
    std::error_code cause;  // what the loader raised first
    Place place;
    std::string detail;     // English, naming no value of the file
};

struct Refusal {
    std::error_code code;
    Place place;
    std::string reason;  // English, naming no value
};

// What a Writer's or Output's throwing call throws.
class refused : public std::system_error {
public:
    explicit refused(Refusal refusal)
        : std::system_error(refusal.code, what_of(refusal)),
          refusal_(std::make_shared<const Refusal>(std::move(refusal)))
    {
    }
    const Refusal &refusal() const noexcept { return *refusal_; }
    const Place &place() const noexcept { return refusal_->place; }
    const std::string &reason() const noexcept { return refusal_->reason; }

private:
    static std::string what_of(const Refusal &refusal)
    {
        const std::string where = refusal.place.describe();
        return where.empty() ? refusal.reason : refusal.reason + " (" + where + ")";
    }
    std::shared_ptr<const Refusal> refusal_;  // shared, so that copies of the exception throw nothing
};

namespace detail {
inline Place place_of(const navo_place &native)
{
    Place place;
    place.area = navo_area_name(native.area);
    place.form = text_of(native.form);
    place.block = text_of(native.block);
    place.field = text_of(native.field);
    const auto known = [](std::optional<int> &to, std::int32_t value, std::int32_t least) {
        if (value >= least)
            to = value;
    };
    known(place.document, native.document, 1);
    known(place.record, native.record, 0);
    known(place.expected, native.expected, 0);
    known(place.found, native.found, 0);
    known(place.field_expected, native.field_expected, 0);
    known(place.field_found, native.field_found, 0);
    known(place.line, native.line, 1);
    if (native.offset >= 0)
        place.offset = native.offset;
    return place;
}

inline navo_place native_of(const Place &place) noexcept
{
    navo_place native{};
    for (std::int32_t area = 1; *navo_area_name(area) != '\0'; area++) {
        if (place.area == navo_area_name(area))
            native.area = area;
    }
    native.document = place.document.value_or(0);
    native.record = place.record.value_or(-1);
    native.expected = place.expected.value_or(-1);
    native.found = place.found.value_or(-1);
    native.field_expected = place.field_expected.value_or(-1);
    native.field_found = place.field_found.value_or(-1);
    native.line = place.line.value_or(0);
    native.offset = place.offset.value_or(-1);
    put_text(native.form, place.form);
    put_text(native.block, place.block);
    put_text(native.field, place.field);
    return native;
}

inline Fault fault_of(const navo_fault &native)
{
    return {code_of(native.code), code_of(native.cause), place_of(native.place), text_of(native.detail)};
}

// A refusal that tells nothing yet: code 0, no place.
inline navo_refusal no_refusal() noexcept
{
    navo_refusal why{};
    why.place = native_of(Place{});
    return why;
}

// The refusal slot of a Writer or an Output: each call of the core fills it when it refuses.
class Refusals {
public:
    Refusal last_refusal() const
    {
        return {code_of(why_.code), place_of(why_.place), text_of(why_.reason)};
    }

protected:
    template <class Call>
    void run(std::error_code &ec, Call &&call)
    {
        ec = code_of(call(&why_));
    }
    // Runs the std::error_code overload of a call; a refusal throws navo::refused.
    template <class Call>
    auto checked(Call &&call) -> std::invoke_result_t<Call &, std::error_code &>
    {
        std::error_code ec;
        if constexpr (std::is_void_v<std::invoke_result_t<Call &, std::error_code &>>) {
            call(ec);
            if (ec)
                throw refused(last_refusal());
        } else {
            auto result = call(ec);
            if (ec)
                throw refused(last_refusal());
            return result;
        }
    }
    navo_refusal why_ = no_refusal();
};
}  // namespace detail

inline std::string Place::describe() const
{
    const navo_place native = detail::native_of(*this);
    std::string out;
    const std::int32_t code = detail::fetch(
        out, [&](char *buffer, std::size_t size) { return navo_place_describe(&native, buffer, size); });
    if (code == NAVO_OUT_OF_MEMORY)
        throw std::bad_alloc();
    return out;
}

// ---- content checks ----------------------------------------------------------------------------

// A value that fails its content rule (docs/content-checks.md).
enum class finding_kind : std::int32_t {
    value = NAVO_FINDING_VALUE,  // one field's value against its type's rule
    cross = NAVO_FINDING_CROSS   // two fields of a record that disagree (on the second of them)
};

struct Finding {
    finding_kind kind = finding_kind::value;
    Place place;          // document (from 1), form, block, record (from 0), field
    std::string type;     // the field's type name in the definition
    std::string rule;     // the check that refused it: "pesel", "nip", "date", "pattern", ...
    std::string problem;  // English, naming no value
    std::string value;    // the value, trailing blanks trimmed: personal data, to show only when asked
};

namespace detail {
inline Finding finding_of(const navo_finding &native)
{
    return {static_cast<finding_kind>(native.kind), place_of(native.place), text_of(native.type),
            text_of(native.rule), text_of(native.problem), text_of(native.value)};
}
}  // namespace detail

// Rules of one's own over the built-in ones (navo_rules), from a JSON text; move-only. An empty
// Rules (default, moved from, or not made) stands for the built-in rules. A text that breaks the
// grammar is errc::bad_rules with its line in last_refusal().place.line (navo::refused's place()
// when thrown); a file that cannot be read errc::read_failed.
class Rules : public detail::Refusals {
public:
    Rules() noexcept = default;
    Rules(Rules &&other) noexcept : detail::Refusals(other), rules_(std::exchange(other.rules_, nullptr)) {}
    Rules &operator=(Rules &&other) noexcept
    {
        if (this != &other) {
            navo_rules_free(rules_);
            detail::Refusals::operator=(other);
            rules_ = std::exchange(other.rules_, nullptr);
        }
        return *this;
    }
    Rules(const Rules &) = delete;
    Rules &operator=(const Rules &) = delete;
    ~Rules() { navo_rules_free(rules_); }

    // The rules of the file at `path`; on failure empty, with the refusal in last_refusal().
    static Rules load(std::string_view path, std::error_code &ec)
    {
        Rules made;
        made.run(ec, [&](navo_refusal *why) { return navo_rules_load(detail::CText(path).get(), &made.rules_, why); });
        return made;
    }
    static Rules load(std::string_view path)
    {
        return made_or_thrown([&](std::error_code &ec) { return load(path, ec); });
    }
    // The rules of a JSON text.
    static Rules parse(std::string_view json, std::error_code &ec)
    {
        Rules made;
        made.run(ec, [&](navo_refusal *why) { return navo_rules_parse(json.data(), json.size(), &made.rules_, why); });
        return made;
    }
    static Rules parse(std::string_view json)
    {
        return made_or_thrown([&](std::error_code &ec) { return parse(json, ec); });
    }

    explicit operator bool() const noexcept { return rules_ != nullptr; }
    const navo_rules *native() const noexcept { return rules_; }

private:
    template <class Make>
    static Rules made_or_thrown(Make &&make)
    {
        std::error_code ec;
        Rules made = make(ec);
        if (ec)
            throw refused(made.last_refusal());
        return made;
    }

    navo_rules *rules_ = nullptr;
};

// ---- reading -----------------------------------------------------------------------------------

// How values come: UTF-8 from the file's code page, or the file's own bytes.
enum class as { utf8, raw };

struct ErrorNote {
    std::array<std::string, 4> text;
};
struct OcrNote {
    int kind = 0;  // 0 "a", 1 "z", 2 "l", 3 "l2"
    std::array<std::string, 6> text;
};

struct LoadOptions {
    navo::encoding encoding = navo::encoding::iso8859_2;  // the file's code page
    bool keep_going = false;  // after a faulty section go on with the next one; each fault is reported
    bool checks = false;      // run the content checks on every field; each finding is reported
    const Rules *rules = nullptr;  // the rules of the checks (must outlive the load); null: the built-in ones
};

enum class outcome { failed = NAVO_FAILED, done = NAVO_DONE, stopped = NAVO_STOPPED };

struct [[nodiscard]] LoadResult {
    navo::outcome outcome = navo::outcome::failed;
    std::error_code code;  // errc::ok after a whole file, errc::cancelled after a stop, else the failure's
    int line = 0;          // where the reader stood at the end
    int lines = 0;         // the file's line count
    int documents = 0;     // documents handed out whole
    int findings = 0;      // findings of the content checks (LoadOptions::checks)
    std::optional<Fault> fault;  // the first fault
    std::vector<Fault> faults;   // every fault, in the order of the file (more than one with keep_going)
    // The place of the first fault: empty when not known, or when there is no fault.
    std::optional<int> document;
    std::string form;
    std::string block;
    std::optional<int> record;
    std::string field;
    // The file's definition version, header and notes, once the load has read them (navo::load;
    // not navo::convert, which puts them in its output).
    std::string version;
    std::array<std::string, 5> file_header;
    std::vector<ErrorNote> file_notes;

    explicit operator bool() const noexcept { return outcome == navo::outcome::done; }
};

// A block of the document's form: by tag, or as a Block of its definition.
class BlockRef {
public:
    BlockRef(const Block &block) noexcept : block_(&block) {}
    template <class Name>
        requires std::is_convertible_v<const Name &, std::string_view>
    BlockRef(const Name &tag) : tag_(tag)
    {
    }

private:
    friend class Document;
    const Block *block_ = nullptr;
    std::string_view tag_;
};

// A field of a block: by name, or as a Field of the block's definition.
class FieldRef {
public:
    FieldRef(const Field &field) noexcept : field_(&field) {}
    template <class Name>
        requires std::is_convertible_v<const Name &, std::string_view>
    FieldRef(const Name &name) : name_(name)
    {
    }

private:
    friend class Document;
    const Field *field_ = nullptr;
    std::string_view name_;
};

// One document of a load, handed to the callable; see the top for what outlives it.
class Document {
public:
    Document(const Document &) = delete;
    Document &operator=(const Document &) = delete;

    std::string_view form() const noexcept { return form_->name; }
    int number() const noexcept { return doc_ != nullptr ? navo_document_number(doc_) : 0; }  // from 1
    const Form &definition() const noexcept { return *form_; }
    std::string_view version() const noexcept { return navo_file_version(navo_document_file(doc_)); }

    std::array<std::string, 14> header(as text = as::utf8) const
    {
        return lines<14>(
            [&](char *out, std::size_t size) { return navo_document_header(doc_, flags(text), out, size); });
    }
    std::array<std::string, 5> file_header(as text = as::utf8) const
    {
        return lines<5>([&](char *out, std::size_t size) {
            return navo_file_header(navo_document_file(doc_), flags(text), out, size);
        });
    }

    // Records of a block: 1 for a single block.
    int records(BlockRef block, std::error_code &ec) const
    {
        const std::int32_t at = block_at(block, ec);
        if (at < 0)
            return 0;
        const std::int32_t count = navo_document_records(doc_, at);
        ec = detail::code_of(count < 0 ? -count : NAVO_OK);
        return count < 0 ? 0 : count;
    }
    int records(BlockRef block) const
    {
        std::error_code ec;
        const int count = records(block, ec);
        check(ec);
        return count;
    }

    // A field's value at its full width.
    std::string field(BlockRef block, int index, FieldRef name, std::error_code &ec, as text = as::utf8) const
    {
        const std::int32_t at = block_at(block, ec);
        const std::int32_t position = at < 0 ? -1 : field_at(at, name, ec);
        std::string value;
        if (position < 0)
            return value;
        char buffer[256];
        std::int64_t length = navo_document_value(doc_, at, index, position, flags(text), buffer, sizeof buffer);
        if (length >= 0 && static_cast<std::size_t>(length) < sizeof buffer)
            value.assign(buffer, static_cast<std::size_t>(length));
        else if (length >= 0)
            length = -detail::fetch(value, [&](char *out, std::size_t size) {
                return navo_document_value(doc_, at, index, position, flags(text), out, size);
            });
        ec = detail::code_of(length < 0 ? static_cast<std::int32_t>(-length) : NAVO_OK);
        return value;
    }
    std::string field(BlockRef block, int index, FieldRef name, as text = as::utf8) const
    {
        std::error_code ec;
        std::string value = field(block, index, name, ec, text);
        check(ec);
        return value;
    }

    // Every field of one record in the block's order, into `values` (whose strings are reused).
    void record(BlockRef block, int index, std::vector<std::string> &values, std::error_code &ec,
                as text = as::utf8) const
    {
        const std::int32_t at = block_at(block, ec);
        if (at < 0)
            return;
        char buffer[4096];
        std::string large;
        std::int64_t length = navo_document_record(doc_, at, index, flags(text), buffer, sizeof buffer);
        std::string_view all(buffer, length >= 0 ? std::min(static_cast<std::size_t>(length), sizeof buffer) : 0);
        if (length >= 0 && static_cast<std::size_t>(length) >= sizeof buffer) {
            length = -detail::fetch(large, [&](char *out, std::size_t size) {
                return navo_document_record(doc_, at, index, flags(text), out, size);
            });
            all = large;
        }
        ec = detail::code_of(length < 0 ? static_cast<std::int32_t>(-length) : NAVO_OK);
        if (length < 0)
            return;
        std::size_t count = 0;
        detail::split_into(all, values, count);
        values.resize(count);
    }
    void record(BlockRef block, int index, std::vector<std::string> &values, as text = as::utf8) const
    {
        std::error_code ec;
        record(block, index, values, ec, text);
        check(ec);
    }
    std::vector<std::string> record(BlockRef block, int index, as text = as::utf8) const
    {
        std::vector<std::string> values;
        std::error_code ec;
        record(block, index, values, ec, text);
        check(ec);
        return values;
    }

    std::vector<ErrorNote> error_notes(as text = as::utf8) const
    {
        std::vector<ErrorNote> notes(note_count(NAVO_ERROR_NOTE));
        for (std::size_t i = 0; i < notes.size(); i++)
            notes[i].text = note<4>(NAVO_ERROR_NOTE, i, text, nullptr);
        return notes;
    }
    std::vector<OcrNote> ocr_notes(as text = as::utf8) const
    {
        std::vector<OcrNote> notes(note_count(NAVO_OCR_NOTE));
        for (std::size_t i = 0; i < notes.size(); i++)
            notes[i].text = note<6>(NAVO_OCR_NOTE, i, text, &notes[i].kind);
        return notes;
    }

    const navo_document *native() const noexcept { return doc_; }

private:
    friend struct detail::Access;
    friend class KeptDocument;

    Document() noexcept = default;
    // Throws std::bad_alloc when the copy of its definition cannot be made.
    explicit Document(const navo_document *doc) : doc_(doc)
    {
        const navo_form_def *native = navo_document_form(doc);
        const Schema *schema = detail::copy_of(navo_file_schema(navo_document_file(doc)));
        const std::int32_t at =
            schema != nullptr ? detail::index_in(native, schema->native()->forms, schema->native()->form_count) : -1;
        if (at < 0)
            throw std::bad_alloc();
        form_ = &schema->forms[static_cast<std::size_t>(at)];
    }

    static std::int32_t flags(as text) noexcept { return NAVO_KEEP_PADDING | (text == as::raw ? NAVO_RAW : 0); }
    static void check(const std::error_code &ec)
    {
        if (ec == errc::out_of_memory)
            throw std::bad_alloc();
        if (ec)
            throw std::system_error(ec, "navo::Document");
    }

    template <std::size_t N, class Call>
    static std::array<std::string, N> lines(Call &&call)
    {
        std::string all;
        check(detail::code_of(detail::fetch(all, call, 1024)));
        std::array<std::string, N> out;
        std::size_t count = 0;
        detail::split_into(all, out, count);
        return out;
    }

    std::size_t note_count(std::int32_t element) const
    {
        const std::int32_t count = navo_document_notes(doc_, element);
        check(detail::code_of(count < 0 ? -count : NAVO_OK));
        return static_cast<std::size_t>(count);
    }
    template <std::size_t N>
    std::array<std::string, N> note(std::int32_t element, std::size_t index, as text, int *kind) const
    {
        return lines<N>([&](char *out, std::size_t size) {
            return navo_document_note(doc_, element, static_cast<std::int32_t>(index), flags(text), out, size, kind);
        });
    }

    // The block's position in the form, or -1 with `ec` set.
    std::int32_t block_at(const BlockRef &block, std::error_code &ec) const
    {
        const navo_form_def *native = form_->native();
        std::int32_t at = -1;
        if (block.block_ != nullptr)
            at = native != nullptr ? detail::index_in(block.block_->native(), native->blocks, native->block_count) : -1;
        else
            at = navo_form_block(native, detail::CText(block.tag_).get());
        ec = detail::code_of(at >= 0 ? NAVO_OK : doc_ == nullptr ? NAVO_INVALID_ARGUMENT : NAVO_UNKNOWN_BLOCK);
        return at;
    }
    std::int32_t field_at(std::int32_t block, const FieldRef &name, std::error_code &ec) const
    {
        const navo_block_def &native = form_->native()->blocks[block];
        const std::int32_t at = name.field_ != nullptr
                                    ? detail::index_in(name.field_->native(), native.fields, native.field_count)
                                    : navo_block_field(&native, detail::CText(name.name_).get());
        ec = detail::code_of(at >= 0 ? NAVO_OK : NAVO_UNKNOWN_FIELD);
        return at;
    }

    const navo_document *doc_ = nullptr;
    const Form *form_ = &detail::no_form();
};

// The line the running load stands on and the file's line count, or 0 and 0; from any thread.
struct Progress {
    int line = 0;
    int lines = 0;
};
inline Progress progress() noexcept
{
    std::int32_t line = 0;
    std::int32_t lines = 0;
    navo_progress(&line, &lines);
    return {line, lines};
}

namespace detail {

struct Access {
    static Document view(const navo_document *doc) { return Document(doc); }
};

// Takes the place of a callable not given.
struct NoCallback {};

template <class F>
concept document_callable = std::is_invocable_r_v<bool, F &, const Document &>;
// A callable of one argument that returns void, or bool (false stops); NoCallback when not given.
template <class F, class Argument>
concept report_callable =
    std::is_same_v<std::remove_cvref_t<F>, NoCallback> ||
    (std::is_invocable_v<F &, const Argument &> &&
     (std::is_void_v<std::invoke_result_t<F &, const Argument &>> ||
      std::is_invocable_r_v<bool, F &, const Argument &>));
template <class F>
concept fault_callable = report_callable<F, Fault>;
template <class F>
concept finding_callable = report_callable<F, Finding>;
template <class F>
concept sink_callable = std::is_invocable_r_v<bool, F &, std::string_view, std::string_view>;

inline navo_load_options options_of(const LoadOptions &options) noexcept
{
    navo_load_options native{};
    native.encoding = static_cast<std::int32_t>(options.encoding);
    native.keep_going = options.keep_going ? 1 : 0;
    native.checks = options.checks ? 1 : 0;
    native.rules = options.rules != nullptr ? options.rules->native() : nullptr;
    return native;
}

// Calls a report callable: true goes on, false stops.
template <class F, class Argument>
bool report(F *callable, const Argument &argument)
{
    if constexpr (std::is_same_v<F, NoCallback>)
        return true;
    else if constexpr (std::is_void_v<std::invoke_result_t<F &, const Argument &>>)
        return std::invoke(*callable, argument), true;
    else
        return static_cast<bool>(std::invoke(*callable, argument));
}

// The one bridge from the core's C callbacks to C++ callables. Nothing thrown crosses the C
// frames: the first exception stops the load and finish() rethrows it once the core returned.
template <class OnDocument, class OnFault, class OnFinding, class Sink>
class Bridge {
public:
    Bridge(OnDocument *onDocument, OnFault *onFault, OnFinding *onFinding, Sink *sink, LoadResult &result) noexcept
        : onDocument_(onDocument), onFault_(onFault), onFinding_(onFinding), sink_(sink), result_(result)
    {
    }
    Bridge(const Bridge &) = delete;
    Bridge &operator=(const Bridge &) = delete;

    navo_load_callbacks callbacks() noexcept
    {
        navo_load_callbacks native{};
        native.user = this;
        native.fault = &Bridge::on_fault;
        if constexpr (!std::is_same_v<OnFinding, NoCallback>)
            native.finding = &Bridge::on_finding;
        if constexpr (!std::is_same_v<OnDocument, NoCallback>) {
            native.file = &Bridge::on_file;
            native.document = &Bridge::on_document;
            native.end = &Bridge::on_end;
        }
        return native;
    }

    static std::int32_t NAVO_FRONT_CALL on_write(void *user, const char *table, const char *bytes,
                                                 std::size_t size) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] {
            return std::invoke(*self.sink_, table != nullptr ? std::string_view(table) : std::string_view(),
                               std::string_view(bytes, size));
        });
    }

    void finish(const navo_load_result &native)
    {
        if (error_)
            std::rethrow_exception(error_);
        result_.outcome = static_cast<outcome>(native.outcome);
        result_.code = code_of(native.code);
        result_.line = native.line;
        result_.lines = native.lines;
        result_.documents = native.documents;
        result_.findings = native.findings;
        if (native.faults > 0) {
            result_.fault = fault_of(native.fault);
            const Place &place = result_.fault->place;
            result_.document = place.document;
            result_.form = place.form;
            result_.block = place.block;
            result_.record = place.record;
            result_.field = place.field;
        }
    }

private:
    template <class Step>
    std::int32_t guard(Step &&step) noexcept
    {
        if (error_)
            return 1;
        try {
            return step() ? 0 : 1;
        } catch (...) {
            error_ = std::current_exception();
            return 1;
        }
    }

    static std::int32_t NAVO_FRONT_CALL on_file(void *user, const navo_file *file) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] {
            self.result_.version = navo_file_version(file);
            std::string all;
            check(fetch(all, [&](char *out, std::size_t size) {
                return navo_file_header(file, NAVO_KEEP_PADDING, out, size);
            }));
            std::size_t count = 0;
            split_into(all, self.result_.file_header, count);
            return true;
        });
    }
    static std::int32_t NAVO_FRONT_CALL on_document(void *user, const navo_document *doc) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] {
            const Document view = Access::view(doc);
            return static_cast<bool>(std::invoke(*self.onDocument_, view));
        });
    }
    static std::int32_t NAVO_FRONT_CALL on_fault(void *user, const navo_fault *fault) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] {
            const Fault &kept = self.result_.faults.emplace_back(fault_of(*fault));
            return report(self.onFault_, kept);
        });
    }
    static std::int32_t NAVO_FRONT_CALL on_finding(void *user, const navo_finding *finding) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] { return report(self.onFinding_, finding_of(*finding)); });
    }
    static std::int32_t NAVO_FRONT_CALL on_end(void *user, const navo_file *file) noexcept
    {
        auto &self = *static_cast<Bridge *>(user);
        return self.guard([&] {
            const std::int32_t count = navo_file_notes(file);
            std::string all;
            for (std::int32_t i = 0; i < count; i++) {
                check(fetch(all, [&](char *out, std::size_t size) {
                    return navo_file_note(file, i, NAVO_KEEP_PADDING, out, size);
                }));
                std::size_t texts = 0;
                split_into(all, self.result_.file_notes.emplace_back().text, texts);
            }
            return true;
        });
    }
    static void check(std::int32_t code)
    {
        if (code == NAVO_OUT_OF_MEMORY)
            throw std::bad_alloc();
        if (code != NAVO_OK)
            throw std::system_error(code_of(code), "navo::load");
    }

    OnDocument *onDocument_;
    OnFault *onFault_;
    OnFinding *onFinding_;
    Sink *sink_;
    LoadResult &result_;
    std::exception_ptr error_;
};

}  // namespace detail

// Reads the file at `path` and calls `onDocument(const Document&)` for each document: true goes
// on, false stops (outcome stopped). `onFault(const Fault&)`, when given, gets each fault as it
// comes (returning void, or false to stop); LoadResult::faults has them all. With
// LoadOptions::checks, `onFinding(const Finding&)` gets each finding (void, or false to stop),
// those of a document before the document; pass {} for an onFault not wanted. An exception from a
// callable stops the load and is rethrown once the core has returned (and released the file).
template <class OnDocument, class OnFault = detail::NoCallback, class OnFinding = detail::NoCallback>
    requires detail::document_callable<std::remove_reference_t<OnDocument>> &&
             detail::fault_callable<std::remove_reference_t<OnFault>> &&
             detail::finding_callable<std::remove_reference_t<OnFinding>>
LoadResult load(std::string_view path, OnDocument &&onDocument, const LoadOptions &options = {},
                OnFault &&onFault = {}, OnFinding &&onFinding = {})
{
    LoadResult result;
    detail::Bridge<std::remove_reference_t<OnDocument>, std::remove_reference_t<OnFault>,
                   std::remove_reference_t<OnFinding>, detail::NoCallback>
        bridge(std::addressof(onDocument), std::addressof(onFault), std::addressof(onFinding), nullptr, result);
    const navo_load_options native = detail::options_of(options);
    const navo_load_callbacks callbacks = bridge.callbacks();
    navo_load_result loaded{};
    navo_load(detail::CText(path).get(), &native, &callbacks, &loaded);
    bridge.finish(loaded);
    return result;
}

// The content checks of the file at `path` (a load with LoadOptions::checks on, whatever
// `options` say): each finding to `onFinding(const Finding&)` as the file is read (void, or false
// to stop), each fault to `onFault`. The result counts the findings; it tells no version, header
// or notes. Exceptions as for load.
template <class OnFinding, class OnFault = detail::NoCallback>
    requires detail::finding_callable<std::remove_reference_t<OnFinding>> &&
             detail::fault_callable<std::remove_reference_t<OnFault>>
LoadResult check(std::string_view path, OnFinding &&onFinding, const LoadOptions &options = {},
                 OnFault &&onFault = {})
{
    LoadResult result;
    detail::Bridge<detail::NoCallback, std::remove_reference_t<OnFault>, std::remove_reference_t<OnFinding>,
                   detail::NoCallback>
        bridge(nullptr, std::addressof(onFault), std::addressof(onFinding), nullptr, result);
    navo_load_options native = detail::options_of(options);
    native.checks = 1;
    const navo_load_callbacks callbacks = bridge.callbacks();
    navo_load_result loaded{};
    navo_load(detail::CText(path).get(), &native, &callbacks, &loaded);
    bridge.finish(loaded);
    return result;
}

enum class format : std::int32_t {
    jsonl = NAVO_JSONL,           // one object a line: the file, each document, the footer
    json = NAVO_JSON,             // the same objects in one array
    csv = NAVO_CSV,               // one table: document,form,block,record,field,value
    csv_blocks = NAVO_CSV_BLOCKS  // one table per block of each form ("TOBZBA.DIPL") and one of headers ("headers")
};

struct ConvertOptions : LoadOptions {
    bool keep_padding = false;  // keep the values' trailing blanks
};

// Converts the file at `path` document by document, handing the output to `sink(table, bytes)`:
// `table` is empty for the one output of a format, else the table's name. false from the sink
// stops the conversion (errc::save_failed). Faults, exceptions and the result as for load.
template <class Sink, class OnFault = detail::NoCallback>
    requires detail::sink_callable<std::remove_reference_t<Sink>> &&
             detail::fault_callable<std::remove_reference_t<OnFault>>
LoadResult convert(std::string_view path, format to, const ConvertOptions &options, Sink &&sink, OnFault &&onFault = {})
{
    LoadResult result;
    using Bridge = detail::Bridge<detail::NoCallback, std::remove_reference_t<OnFault>, detail::NoCallback,
                                  std::remove_reference_t<Sink>>;
    Bridge bridge(nullptr, std::addressof(onFault), nullptr, std::addressof(sink), result);
    const navo_load_options native = detail::options_of(options);
    const navo_load_callbacks callbacks = bridge.callbacks();
    navo_load_result loaded{};
    navo_convert(detail::CText(path).get(), &native, static_cast<std::int32_t>(to),
                 options.keep_padding ? NAVO_KEEP_PADDING : 0, &Bridge::on_write, &bridge, &callbacks, &loaded);
    bridge.finish(loaded);
    return result;
}

// A document kept after its load (navo_document_open), move-only; empty when moved from.
class KeptDocument {
public:
    KeptDocument() noexcept = default;
    KeptDocument(KeptDocument &&other) noexcept { take(other); }
    KeptDocument &operator=(KeptDocument &&other) noexcept
    {
        if (this != &other) {
            close();
            take(other);
        }
        return *this;
    }
    ~KeptDocument() { close(); }

    explicit operator bool() const noexcept { return owned_ != nullptr; }
    const Document &operator*() const noexcept { return view_; }
    const Document *operator->() const noexcept { return &view_; }

private:
    friend KeptDocument open_document(std::string_view, int, std::error_code &, const LoadOptions &);

    void adopt(navo_document *doc)
    {
        owned_ = doc;
        if (doc != nullptr)
            view_.form_ = Document(doc).form_;
        view_.doc_ = doc;
    }
    void take(KeptDocument &other) noexcept
    {
        owned_ = std::exchange(other.owned_, nullptr);
        view_.doc_ = std::exchange(other.view_.doc_, nullptr);
        view_.form_ = std::exchange(other.view_.form_, &detail::no_form());
    }
    void close() noexcept
    {
        navo_document_close(std::exchange(owned_, nullptr));
        view_.doc_ = nullptr;
        view_.form_ = &detail::no_form();
    }

    navo_document *owned_ = nullptr;
    Document view_;
};

// Reads the file up to its document `number` (from 1) and keeps that document: errc::bad_index
// when the file has fewer, errc::bad_document when its section is faulty, else the load's code.
inline KeptDocument open_document(std::string_view path, int number, std::error_code &ec,
                                  const LoadOptions &options = {})
{
    const navo_load_options native = detail::options_of(options);
    navo_document *doc = nullptr;
    navo_load_result loaded{};
    ec = detail::code_of(navo_document_open(detail::CText(path).get(), &native, number, nullptr, &doc, &loaded));
    KeptDocument kept;
    kept.adopt(doc);
    return kept;
}
inline KeptDocument open_document(std::string_view path, int number, const LoadOptions &options = {})
{
    std::error_code ec;
    KeptDocument kept = open_document(path, number, ec, options);
    if (ec == errc::out_of_memory)
        throw std::bad_alloc();
    if (ec)
        throw std::system_error(ec, "navo::open_document");
    return kept;
}

// ---- writing -----------------------------------------------------------------------------------

enum class writer_flags : std::int32_t {
    none = 0,
    truncate = NAVO_TRUNCATE,  // cut values too wide, write '?' for characters the code page lacks
    check = NAVO_CHECK         // refuse values that fail their content rule
};
constexpr writer_flags operator|(writer_flags a, writer_flags b) noexcept
{
    return static_cast<writer_flags>(static_cast<std::int32_t>(a) | static_cast<std::int32_t>(b));
}

// The texts of a note or the lines of a header: a braced list or any range of strings.
class Texts {
public:
    Texts() = default;
    Texts(std::initializer_list<std::string_view> texts) : texts_(texts) {}
    template <class Range>
        requires requires(const Range &range) {
            { *std::begin(range) } -> std::convertible_to<std::string_view>;
            std::end(range);
        }
    Texts(const Range &texts) : texts_(std::begin(texts), std::end(texts))
    {
    }
    auto begin() const noexcept { return texts_.begin(); }
    auto end() const noexcept { return texts_.end(); }
    std::size_t size() const noexcept { return texts_.size(); }

private:
    std::vector<std::string_view> texts_;
};

namespace detail {
// Texts as the array of C strings a call takes.
class CTexts {
public:
    explicit CTexts(const Texts &texts)
    {
        for (std::string_view text : texts) {
            std::string &copy = copies_.emplace_back(text);
            std::replace(copy.begin(), copy.end(), '\0', '\x1A');
        }
        for (const std::string &copy : copies_)
            pointers_.push_back(copy.c_str());
    }
    const char *const *get() const noexcept { return pointers_.data(); }
    std::int32_t count() const noexcept { return static_cast<std::int32_t>(pointers_.size()); }

private:
    std::vector<std::string> copies_;
    std::vector<const char *> pointers_;
};
}  // namespace detail

// Builds documents of one definition version and saves them as one file (navo_writer_*). Every
// call checks all it is given before it changes anything; a refused call changes nothing.
class Writer : public detail::Refusals {
public:
    // Throws std::system_error (errc::unknown_version) or std::bad_alloc.
    explicit Writer(std::string_view version = "1.3", encoding codePage = encoding::iso8859_2,
                    writer_flags flags = writer_flags::none)
    {
        std::error_code ec;
        Writer made(version, codePage, flags, ec);
        if (ec == errc::out_of_memory)
            throw std::bad_alloc();
        if (ec)
            throw std::system_error(ec, "navo::Writer");
        *this = std::move(made);
    }
    Writer(std::string_view version, encoding codePage, writer_flags flags, std::error_code &ec)
    {
        writer_ = navo_writer_new(detail::CText(version).get(), static_cast<std::int32_t>(codePage),
                                  static_cast<std::int32_t>(flags));
        try {
            schema_ = detail::copy_of(navo_writer_schema(writer_));
        } catch (const std::bad_alloc &) {
        }
        if (schema_ == nullptr)
            navo_writer_free(std::exchange(writer_, nullptr));
        ec = detail::code_of(writer_ != nullptr                 ? NAVO_OK
                             : !detail::known_version(version) ? NAVO_UNKNOWN_VERSION
                                                               : NAVO_OUT_OF_MEMORY);
    }
    Writer(Writer &&other) noexcept
        : detail::Refusals(other), writer_(std::exchange(other.writer_, nullptr)),
          schema_(std::exchange(other.schema_, nullptr))
    {
    }
    Writer &operator=(Writer &&other) noexcept
    {
        if (this != &other) {
            navo_writer_free(writer_);
            detail::Refusals::operator=(other);
            writer_ = std::exchange(other.writer_, nullptr);
            schema_ = std::exchange(other.schema_, nullptr);
        }
        return *this;
    }
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    // Releases the documents and spool files; a begun file is removed.
    ~Writer() { navo_writer_free(writer_); }

    explicit operator bool() const noexcept { return writer_ != nullptr; }
    const Schema &schema() const noexcept { return schema_ != nullptr ? *schema_ : detail::no_schema(); }
    navo_writer *native() const noexcept { return writer_; }

    // Line `line` (from 0) of the file header.
    void set_file_header(int line, std::string_view text, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) {
            return navo_writer_file_header(writer_, line, detail::CText(text).get(), why);
        });
    }
    void set_file_header(int line, std::string_view text)
    {
        checked([&](std::error_code &ec) { set_file_header(line, text, ec); });
    }

    void add_file_note(const Texts &texts, std::error_code &ec)
    {
        const detail::CTexts c(texts);
        run(ec, [&](navo_refusal *why) { return navo_writer_file_note(writer_, c.get(), c.count(), why); });
    }
    void add_file_note(const Texts &texts)
    {
        checked([&](std::error_code &ec) { add_file_note(texts, ec); });
    }

    // Adds a document of `form` and gives its number (from 1, in the order of adding; 0 when
    // refused). With `header`, its lines from line 0: a line refused takes the document out again.
    int add_document(std::string_view form, std::error_code &ec)
    {
        std::int32_t number = 0;
        run(ec, [&](navo_refusal *why) {
            return navo_writer_add_document(writer_, detail::CText(form).get(), &number, why);
        });
        return ec ? 0 : number;
    }
    int add_document(std::string_view form, const Texts &header, std::error_code &ec)
    {
        const int number = add_document(form, ec);
        if (ec)
            return 0;
        struct Undo {
            navo_writer *writer;
            int number;
            ~Undo()
            {
                if (writer != nullptr)
                    navo_writer_remove_document(writer, number);
            }
        } undo{writer_, number};
        int line = 0;
        for (std::string_view text : header) {
            set_header(number, line++, text, ec);
            if (ec)
                return 0;
        }
        undo.writer = nullptr;
        return number;
    }
    int add_document(std::string_view form, const Texts &header = {})
    {
        return checked([&](std::error_code &ec) { return add_document(form, header, ec); });
    }

    void remove_document(int document, std::error_code &ec)
    {
        ec = detail::code_of(navo_writer_remove_document(writer_, document));
        if (ec) {
            // The core's remove tells no place or reason: the document and the code's words stand for them.
            unplaced(ec);
            why_.place.document = document;
        }
    }
    void remove_document(int document)
    {
        checked([&](std::error_code &ec) { remove_document(document, ec); });
    }

    // The rules of writer_flags::check (an empty Rules: the built-in ones, as before any call).
    // `rules` must outlive the writer, or the next set_rules.
    void set_rules(const Rules &rules, std::error_code &ec)
    {
        ec = detail::code_of(navo_writer_rules(writer_, rules.native()));
        if (ec)
            unplaced(ec);
    }
    void set_rules(const Rules &rules)
    {
        checked([&](std::error_code &ec) { set_rules(rules, ec); });
    }

    // Line `line` (from 0) of a document's header.
    void set_header(int document, int line, std::string_view text, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) {
            return navo_writer_header(writer_, document, line, detail::CText(text).get(), why);
        });
    }
    void set_header(int document, int line, std::string_view text)
    {
        checked([&](std::error_code &ec) { set_header(document, line, text, ec); });
    }

    // Appends a record to a repeating block (a new document has one) and gives its index.
    int add_record(int document, std::string_view block, std::error_code &ec)
    {
        std::int32_t record = 0;
        run(ec, [&](navo_refusal *why) {
            return navo_writer_add_record(writer_, document, detail::CText(block).get(), &record, why);
        });
        return ec ? 0 : record;
    }
    int add_record(int document, std::string_view block)
    {
        return checked([&](std::error_code &ec) { return add_record(document, block, ec); });
    }

    void set(int document, std::string_view block, int record, std::string_view field, std::string_view value,
             std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) {
            return navo_writer_set(writer_, document, detail::CText(block).get(), record, detail::CText(field).get(),
                                   detail::CText(value).get(), why);
        });
    }
    void set(int document, std::string_view block, int record, std::string_view field, std::string_view value)
    {
        checked([&](std::error_code &ec) { set(document, block, record, field, value, ec); });
    }

    void add_error_note(int document, const Texts &texts, std::error_code &ec)
    {
        const detail::CTexts c(texts);
        run(ec, [&](navo_refusal *why) { return navo_writer_error_note(writer_, document, c.get(), c.count(), why); });
    }
    void add_error_note(int document, const Texts &texts)
    {
        checked([&](std::error_code &ec) { add_error_note(document, texts, ec); });
    }

    // An OCR note of `kind` 0-3 ("a", "z", "l", "l2").
    void add_ocr_note(int document, int kind, const Texts &texts, std::error_code &ec)
    {
        const detail::CTexts c(texts);
        run(ec, [&](navo_refusal *why) {
            return navo_writer_ocr_note(writer_, document, kind, c.get(), c.count(), why);
        });
    }
    void add_ocr_note(int document, int kind, const Texts &texts)
    {
        checked([&](std::error_code &ec) { add_ocr_note(document, kind, texts, ec); });
    }

    // Saves every document as one file, put in place whole or not at all (errc::save_failed).
    void save(std::string_view path, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_writer_save(writer_, detail::CText(path).get(), why); });
    }
    void save(std::string_view path)
    {
        checked([&](std::error_code &ec) { save(path, ec); });
    }

    // Saving document by document: begin writes the prolog and the file header, write_document one
    // document (and removes it), finish the notes and footer and puts the file in place.
    void begin(std::string_view path, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_writer_begin(writer_, detail::CText(path).get(), why); });
    }
    void begin(std::string_view path)
    {
        checked([&](std::error_code &ec) { begin(path, ec); });
    }
    void write_document(int document, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_writer_write_document(writer_, document, why); });
    }
    void write_document(int document)
    {
        checked([&](std::error_code &ec) { write_document(document, ec); });
    }
    void finish(std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_writer_finish(writer_, why); });
    }
    void finish()
    {
        checked([&](std::error_code &ec) { finish(ec); });
    }

private:
    // A refusal of a call that tells no place or reason: the code's words stand for it.
    void unplaced(const std::error_code &ec) noexcept
    {
        why_ = detail::no_refusal();
        why_.code = ec.value();
        detail::put_text(why_.reason, navo_message(ec.value(), NAVO_ENGLISH));
    }

    navo_writer *writer_ = nullptr;
    const Schema *schema_ = nullptr;
};

// A host's own output file (navo_output): written beside its path and put in place by commit;
// abandoned (removed) by the destructor or another open when not committed.
class Output : public detail::Refusals {
public:
    Output() noexcept = default;
    Output(Output &&other) noexcept : detail::Refusals(other), output_(std::exchange(other.output_, nullptr)) {}
    Output &operator=(Output &&other) noexcept
    {
        if (this != &other) {
            navo_output_free(output_);
            detail::Refusals::operator=(other);
            output_ = std::exchange(other.output_, nullptr);
        }
        return *this;
    }
    Output(const Output &) = delete;
    Output &operator=(const Output &) = delete;
    ~Output() { navo_output_free(output_); }

    explicit operator bool() const noexcept { return output_ != nullptr; }

    void open(std::string_view path, std::error_code &ec)
    {
        navo_output_free(std::exchange(output_, nullptr));
        run(ec, [&](navo_refusal *why) { return navo_output_open(detail::CText(path).get(), &output_, why); });
    }
    void open(std::string_view path)
    {
        checked([&](std::error_code &ec) { open(path, ec); });
    }
    void write(std::string_view bytes, std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_output_write(output_, bytes.data(), bytes.size(), why); });
    }
    void write(std::string_view bytes)
    {
        checked([&](std::error_code &ec) { write(bytes, ec); });
    }
    void commit(std::error_code &ec)
    {
        run(ec, [&](navo_refusal *why) { return navo_output_commit(output_, why); });
    }
    void commit()
    {
        checked([&](std::error_code &ec) { commit(ec); });
    }

private:
    navo_output *output_ = nullptr;
};

}  // namespace navo

#endif  // NAVO_HPP

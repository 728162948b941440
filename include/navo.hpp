// navo.hpp - the C++20 interface of libnavo, header-only over the C ABI of navo.h.
//
// What it adds to the C calls:
//   navo::Context   move-only owner of a dk_Context; its destructor releases the context in every
//                   state, also the ones dk_Destroy refuses (no document tables yet).
//   navo::load      reads a file and hands each document to a C++ callable as a navo::Document;
//                   gives a [[nodiscard]] navo::LoadResult (outcome, std::error_code, line).
//   navo::Writer    builds documents by form, block and field name and saves the file.
//   navo::Schema    the forms, blocks and fields of definition version 1.2 or 1.3 as plain data.
//   navo::errc      the library's load codes 0-10 and this header's own refusals (100 on), in the
//                   error category navo::category(); message() is the library's Polish text as
//                   UTF-8, navo::english() an English rendering, navo::library_message() the CP1250
//                   bytes as the library gives them.
//
// Failures: every operation that can fail has an overload taking std::error_code& that reports
// there and throws nothing but std::bad_alloc (from std::string and std::vector); the overload
// without it throws std::system_error carrying the same code (Context() throws std::bad_alloc).
// navo::load reports through its LoadResult and throws only what the callback threw.
//
// Text: values are the bytes of the file, never converted (a NAVO file declares ISO 8859-2; the
// library's own messages and definitions are CP1250). navo::to_utf8 converts either for display.
// Field values come back at their full width, trailing blanks included.
//
// Lifetimes: a Document exists only for the duration of the callback that receives it; it can be
// neither copied nor moved. std::string_view results of a Document (form(), header(),
// file_header()) point into the library's records and are good until the callback returns; copy
// them (std::string) to keep them. field(), the notes and everything in LoadResult and Schema are
// owned copies and stay good for as long as the host keeps them.
//
// Threads: the library keeps its load state process-wide (line counters, last error, one callback
// pointer, the definition text cursor) and is not reentrant. navo::load therefore holds one
// process-wide mutex for the whole load, and reaches the C++ callable through a trampoline, a plain
// C function installed with dk_UstawCallBack that finds the callable in a thread_local slot set by
// the load running on that thread; the previous callback is put back when the load returns. A
// callback must not start a load (it gets errc::load_in_progress); it may use a Writer. Hosts that
// call the C API directly as well must not do so while a load runs on another thread.
#ifndef NAVO_HPP
#define NAVO_HPP

#if __cplusplus < 202002L && !(defined(_MSVC_LANG) && _MSVC_LANG >= 202002L)
#error "navo.hpp needs C++20"
#endif

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "navo.h"

namespace navo {

// ---- Error codes ---------------------------------------------------------------------------

enum class errc : int {
    ok = 0,                    // library load codes, as dk_GetNAVOError gives them
    not_navo = 1,
    open_failed = 2,
    unexpected_end = 3,
    unexpected_entry = 4,
    bad_document = 5,
    unexpected_block = 6,
    bad_block_size = 7,
    document_not_created = 8,
    out_of_memory = 9,
    cancelled = 10,
    no_context = 100,          // refusals of this header; the store and the writer report by result only
    load_in_progress,
    unknown_form,
    unknown_block,
    unknown_field,
    bad_index,
    not_repeating,
    value_too_wide,
    bad_value,
    store_failed,
    save_failed,
};

inline std::string_view english_message(int code) noexcept
{
    switch (static_cast<errc>(code)) {
    case errc::ok: return "everything is fine";
    case errc::not_navo: return "bad NAVO file format - this is not a NAVO file";
    case errc::open_failed: return "the NAVO file could not be opened";
    case errc::unexpected_end: return "read error - unexpected end of file";
    case errc::unexpected_entry: return "bad file format - another entry was expected";
    case errc::bad_document: return "bad document format - error while reading a document";
    case errc::unexpected_block: return "a block the document's definition does not have";
    case errc::bad_block_size: return "wrong block size";
    case errc::document_not_created: return "system error - the document could not be created";
    case errc::out_of_memory: return "out of memory";
    case errc::cancelled: return "cancelled";
    case errc::no_context: return "no context (moved from, or its creation failed)";
    case errc::load_in_progress: return "a load is running on this thread (a callback must not start one)";
    case errc::unknown_form: return "no form of that name in the definition";
    case errc::unknown_block: return "the form has no block with that tag";
    case errc::unknown_field: return "the block has no field of that name";
    case errc::bad_index: return "no document or record at that index";
    case errc::not_repeating: return "the block is not a repeating block";
    case errc::value_too_wide: return "value wider than its field or line";
    case errc::bad_value: return "value holds a line feed, carriage return or NUL";
    case errc::store_failed: return "the document store refused the call (spool file or memory)";
    case errc::save_failed: return "the file could not be written";
    }
    return "unknown navo error";
}

enum class charset { cp1250, iso8859_2 };

namespace detail {
// Code points of the bytes 0x80-0xFF; 0xFFFD where CP1250 has no character.
inline constexpr char16_t cp1250_high[128] = {
    0x20AC, 0xFFFD, 0x201A, 0xFFFD, 0x201E, 0x2026, 0x2020, 0x2021, 0xFFFD, 0x2030, 0x0160, 0x2039, 0x015A,
    0x0164, 0x017D, 0x0179, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, 0xFFFD, 0x2122,
    0x0161, 0x203A, 0x015B, 0x0165, 0x017E, 0x017A, 0x00A0, 0x02C7, 0x02D8, 0x0141, 0x00A4, 0x0104, 0x00A6,
    0x00A7, 0x00A8, 0x00A9, 0x015E, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x017B, 0x00B0, 0x00B1, 0x02DB, 0x0142,
    0x00B4, 0x00B5, 0x00B6, 0x00B7, 0x00B8, 0x0105, 0x015F, 0x00BB, 0x013D, 0x02DD, 0x013E, 0x017C};
// 0xA0-0xBF of ISO 8859-2; 0x80-0x9F are the C1 controls and 0xC0-0xFF equal CP1250.
inline constexpr char16_t latin2_a0[32] = {
    0x00A0, 0x0104, 0x02D8, 0x0141, 0x00A4, 0x013D, 0x015A, 0x00A7, 0x00A8, 0x0160, 0x015E,
    0x0164, 0x0179, 0x00AD, 0x017D, 0x017B, 0x00B0, 0x0105, 0x02DB, 0x0142, 0x00B4, 0x013E,
    0x015B, 0x02C7, 0x00B8, 0x0161, 0x015F, 0x0165, 0x017A, 0x02DD, 0x017E, 0x017C};
inline constexpr char16_t high_c0[64] = {
    0x0154, 0x00C1, 0x00C2, 0x0102, 0x00C4, 0x0139, 0x0106, 0x00C7, 0x010C, 0x00C9, 0x0118, 0x00CB, 0x011A,
    0x00CD, 0x00CE, 0x010E, 0x0110, 0x0143, 0x0147, 0x00D3, 0x00D4, 0x0150, 0x00D6, 0x00D7, 0x0158, 0x016E,
    0x00DA, 0x0170, 0x00DC, 0x00DD, 0x0162, 0x00DF, 0x0155, 0x00E1, 0x00E2, 0x0103, 0x00E4, 0x013A, 0x0107,
    0x00E7, 0x010D, 0x00E9, 0x0119, 0x00EB, 0x011B, 0x00ED, 0x00EE, 0x010F, 0x0111, 0x0144, 0x0148, 0x00F3,
    0x00F4, 0x0151, 0x00F6, 0x00F7, 0x0159, 0x016F, 0x00FA, 0x0171, 0x00FC, 0x00FD, 0x0163, 0x02D9};
}  // namespace detail

// The bytes as UTF-8; a CP1250 byte without a character becomes U+FFFD.
inline std::string to_utf8(std::string_view bytes, charset from = charset::iso8859_2)
{
    std::string out;
    out.reserve(bytes.size());
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        char32_t c = b < 0x80 ? b
                     : b >= 0xC0 ? detail::high_c0[b - 0xC0]
                     : from == charset::cp1250 ? detail::cp1250_high[b - 0x80]
                     : b >= 0xA0 ? detail::latin2_a0[b - 0xA0]
                                 : b;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

// The library's message for a load code, CP1250 bytes as it gives them; empty for other codes.
inline std::string library_message(int code)
{
    char buffer[200];
    dk_GetNAVOErrorMessage(code, buffer, static_cast<int32_t>(sizeof buffer));
    return buffer;
}

namespace detail {
class category_impl final : public std::error_category {
public:
    const char *name() const noexcept override { return "navo"; }
    std::string message(int code) const override
    {
        std::string polish = library_message(code);
        return polish.empty() ? std::string(english_message(code)) : to_utf8(polish, charset::cp1250);
    }
};
}  // namespace detail

inline const std::error_category &category() noexcept
{
    static const detail::category_impl instance;
    return instance;
}

inline std::error_code make_error_code(errc e) noexcept { return {static_cast<int>(e), category()}; }

// English rendering of a code of this category; message() for any other category.
inline std::string english(const std::error_code &code)
{
    return code.category() == category() ? std::string(english_message(code.value())) : code.message();
}

}  // namespace navo

template <>
struct std::is_error_code_enum<navo::errc> : std::true_type {};

namespace navo {

namespace detail {
inline void throw_if(const std::error_code &ec, const char *what)
{
    if (ec)
        throw std::system_error(ec, what);
}

// The library compares names as dk_sdStrCmp does: bytes, ASCII case folded.
inline bool same_name(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); i++) {
        char x = a[i], y = b[i];
        if (x >= 'a' && x <= 'z')
            x = static_cast<char>(x - 32);
        if (y >= 'a' && y <= 'z')
            y = static_cast<char>(y - 32);
        if (x != y)
            return false;
    }
    return true;
}

template <class T>
const T *find_named(const std::vector<T> &items, std::string_view name, std::string T::*key) noexcept
{
    for (const T &item : items)
        if (same_name(item.*key, name))
            return &item;
    return nullptr;
}

inline std::string fixed(const char *text) { return text != nullptr ? std::string(text) : std::string(); }

// One load at a time in the process; the slot tells a thread that it runs one (see the top).
inline std::mutex &library_mutex()
{
    static std::mutex instance;
    return instance;
}
struct LoadState;
inline thread_local LoadState *active_load = nullptr;

// Holds the process-wide mutex, unless this thread is inside a load's callback and so holds it.
class LibraryLock {
public:
    LibraryLock()
    {
        if (active_load == nullptr)
            lock_ = std::unique_lock<std::mutex>(library_mutex());
    }
private:
    std::unique_lock<std::mutex> lock_;
};
}  // namespace detail

// ---- Context -------------------------------------------------------------------------------

class Context {
public:
    // Creates a context (dk_Init); throws std::bad_alloc when the library runs out of memory.
    Context()
    {
        std::error_code ec;
        Context made(ec);
        if (ec)
            throw std::bad_alloc();
        *this = std::move(made);
    }
    explicit Context(std::nullptr_t) noexcept {}  // holds nothing, like a moved-from one
    explicit Context(std::error_code &ec) noexcept
    {
        ec.clear();
        if (!dk_Init(&ctx_)) {
            reset();  // dk_Init leaves a partly built context behind
            ec = errc::out_of_memory;
        }
    }
    ~Context() { reset(); }
    Context(Context &&other) noexcept : ctx_(std::exchange(other.ctx_, nullptr)) {}
    Context &operator=(Context &&other) noexcept
    {
        if (this != &other) {
            reset();
            ctx_ = std::exchange(other.ctx_, nullptr);
        }
        return *this;
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;

    dk_Context *get() const noexcept { return ctx_; }
    explicit operator bool() const noexcept { return ctx_ != nullptr; }

    // Releases the context now, whatever its state; afterwards get() is null.
    void reset() noexcept
    {
        if (ctx_ == nullptr || dk_Destroy(&ctx_))
            return;
        // Refused: the context has no document tables. Tables for its definition make it releasable.
        if (ctx_->definitions != nullptr && ctx_->definitions->count > 0 && dk_InitDocuments(ctx_, 1) &&
            dk_Destroy(&ctx_))
            return;
        // No definition (or one without forms, or no memory for tables): no call releases such a
        // context, so its open records are taken down one by one. No document exists in it.
        if (ctx_->filePool != nullptr) {
            dk_Free(ctx_->filePool->blocks);
            dk_Free(ctx_->filePool);
        }
        dk_Free(ctx_->documentLists);
        dk_Free(ctx_->footer.notes);
        dk_dfDestroy(&ctx_->definitions);
        dk_sdDestroy(&ctx_->dictionary);
        dk_Free(ctx_);
        ctx_ = nullptr;
    }

private:
    dk_Context *ctx_ = nullptr;
};

// ---- Definitions as data -------------------------------------------------------------------

enum class version { v1_2, v1_3 };

inline std::string_view version_name(version v) noexcept { return v == version::v1_2 ? "1.2" : "1.3"; }
inline const char *definition_text(version v) noexcept
{
    return v == version::v1_2 ? GetDefTXT_1_2() : GetDefTXT_1_3();
}

struct Field {
    std::string name;
    int offset = 0;  // in the record
    int width = 0;
};

struct Block {
    std::string tag;   // what a host names it by, e.g. "DIPL"
    std::string name;  // its name inside the definition text
    int record_length = 0;
    bool repeating = false;  // referenced with occurrence mark -1: any number of records
    std::vector<Field> fields;
    const Field *field(std::string_view fieldName) const noexcept
    {
        return detail::find_named(fields, fieldName, &Field::name);
    }
};

struct Form {
    std::string name;
    std::vector<Block> blocks;  // in the order of the form
    const Block *block(std::string_view blockTag) const noexcept
    {
        return detail::find_named(blocks, blockTag, &Block::tag);
    }
};

struct Schema {
    std::string name;  // the definition's name
    std::vector<Form> forms;
    const Form *form(std::string_view formName) const noexcept
    {
        return detail::find_named(forms, formName, &Form::name);
    }

    // A copy of definition 0 of a context; empty when it has none.
    static Schema of(const dk_Context &ctx)
    {
        Schema schema;
        if (ctx.definitions == nullptr || ctx.definitions->count < 1 || ctx.dictionary == nullptr)
            return schema;
        const dk_dfDefinition &def = ctx.definitions->items[0];
        char **strings = ctx.dictionary->strings;
        schema.name = detail::fixed(def.name);
        schema.forms.reserve(static_cast<std::size_t>(def.formCount));
        for (const dk_dfForm &f : std::span(def.forms, static_cast<std::size_t>(def.formCount))) {
            Form &form = schema.forms.emplace_back();
            form.name = detail::fixed(strings[f.id]);
            for (const dk_dfBlockRef &ref : std::span(f.refs, static_cast<std::size_t>(f.refCount))) {
                const dk_dfBlock &b = def.blocks[ref.blockIndex];
                Block &block = form.blocks.emplace_back();
                block.tag = detail::fixed(strings[b.tagId]);
                block.name = detail::fixed(b.name);
                block.record_length = b.recordLength;
                block.repeating = ref.occurrence == -1;
                for (const dk_dfField &fd : std::span(b.fields, static_cast<std::size_t>(b.fieldCount)))
                    block.fields.push_back({detail::fixed(strings[fd.nameId]), fd.offset, fd.width});
            }
        }
        return schema;
    }
};

namespace detail {
// A context holding `v` as definition 0 with document tables, ready to build documents.
inline Context defined_context(version v, std::error_code &ec)
{
    Context ctx(ec);
    if (ec)
        return ctx;
    LibraryLock lock;  // the definition loader keeps its text cursor process-wide
    if (!dk_dfLoadDefinition(ctx.get()->definitions, ctx.get()->dictionary, definition_text(v)) ||
        !dk_InitDocuments(ctx.get(), 10))
        ec = errc::out_of_memory;
    return ctx;
}
}  // namespace detail

inline Schema schema(version v, std::error_code &ec)
{
    Context ctx = detail::defined_context(v, ec);
    return ec ? Schema{} : Schema::of(*ctx.get());
}
inline Schema schema(version v)
{
    std::error_code ec;
    Schema result = schema(v, ec);
    detail::throw_if(ec, "navo::schema");
    return result;
}

// ---- Reading -------------------------------------------------------------------------------

struct ErrorNote {
    std::array<std::string, 4> text;
};
struct OcrNote {
    int kind = 0;  // 0 "a", 1 "z", 2 "l", 3 "l2"
    std::array<std::string, 6> text;
};

namespace detail {
inline std::vector<ErrorNote> copy_notes(const dk_ErrorNote *notes, int32_t count)
{
    std::vector<ErrorNote> out;
    for (int32_t i = 0; i < count; i++)
        out.push_back({{notes[i].text1, notes[i].text2, notes[i].text3, notes[i].text4}});
    return out;
}
}  // namespace detail

// One document of a running load, handed to the callback. See the top for what outlives it.
class Document {
public:
    Document(dk_Context *ctx, const char *form, int32_t index, const Form &definition) noexcept
        : ctx_(ctx), form_(form), index_(index), definition_(definition)
    {
    }
    Document(const Document &) = delete;
    Document &operator=(const Document &) = delete;

    std::string_view form() const noexcept { return form_; }
    int index() const noexcept { return index_; }
    const Form &definition() const noexcept { return definition_; }  // its blocks and fields
    dk_Context *context() const noexcept { return ctx_; }            // for the C calls

    // The 14 header lines, each at the width the file gave it.
    std::array<std::string_view, 14> header() const noexcept
    {
        dk_DocHeader *h = nullptr;
        if (!dk_GetDocHeader(ctx_, form_, index_, &h))
            return {};
        return {h->line1, h->line2, h->line3, h->line4,  h->line5,  h->line6,  h->line7,
                h->line8, h->line9, h->line10, h->line11, h->line12, h->line13, h->line14};
    }
    // The 5 lines of the file header (read before the first document).
    std::array<std::string_view, 5> file_header() const noexcept
    {
        const dk_FileHeader &h = ctx_->header;
        return {h.line1, h.line2, h.line3, h.line4, h.line5};
    }

    // Records of a block: 1 for a single block.
    int records(std::string_view block, std::error_code &ec) const
    {
        ec.clear();
        const Block *b = definition_.block(block);
        if (b == nullptr) {
            ec = errc::unknown_block;
            return 0;
        }
        if (!b->repeating)
            return 1;
        int32_t count = 0;
        if (!dk_GetBlockCount(ctx_, form_, index_, b->tag.c_str(), &count)) {
            ec = errc::store_failed;
            return 0;
        }
        return count;
    }
    int records(std::string_view block) const
    {
        std::error_code ec;
        int count = records(block, ec);
        detail::throw_if(ec, "navo::Document::records");
        return count;
    }

    // A field's value at its full width.
    std::string field(std::string_view block, int record, std::string_view name, std::error_code &ec) const
    {
        ec.clear();
        const Block *b = definition_.block(block);
        const Field *f = b != nullptr ? b->field(name) : nullptr;
        if (f == nullptr) {
            ec = b == nullptr ? errc::unknown_block : errc::unknown_field;
            return {};
        }
        if (record < 0 || (!b->repeating && record != 0)) {
            ec = errc::bad_index;
            return {};
        }
        std::string value(static_cast<std::size_t>(f->width) + 1, '\0');
        if (!dk_GetField(ctx_, form_, index_, b->tag.c_str(), record, f->name.c_str(), value.data(),
                         static_cast<int32_t>(value.size()))) {
            int count = records(block, ec);
            ec = !ec && record >= count ? errc::bad_index : errc::store_failed;
            return {};
        }
        value.resize(std::char_traits<char>::length(value.c_str()));
        return value;
    }
    std::string field(std::string_view block, int record, std::string_view name) const
    {
        std::error_code ec;
        std::string value = field(block, record, name, ec);
        detail::throw_if(ec, "navo::Document::field");
        return value;
    }

    std::vector<ErrorNote> error_notes() const
    {
        dk_DocFooter *footer = nullptr;
        if (!dk_GetDocFooter(ctx_, form_, index_, &footer))
            return {};
        return detail::copy_notes(footer->errorNotes, footer->errorCount);
    }
    std::vector<OcrNote> ocr_notes() const
    {
        std::vector<OcrNote> out;
        dk_DocFooter *footer = nullptr;
        if (!dk_GetDocFooter(ctx_, form_, index_, &footer))
            return out;
        for (const dk_OcrNote &n : std::span(footer->ocrNotes, static_cast<std::size_t>(footer->ocrCount)))
            out.push_back({n.kind, {n.text1, n.text2, n.text3, n.text4, n.text5, n.text6}});
        return out;
    }

    // Progress: the line the reader stands on and the file's line count.
    int line() const noexcept { return dk_GetNAVOLine(); }
    int lines() const noexcept { return i_lLinii; }

private:
    dk_Context *ctx_;
    const char *form_;
    int32_t index_;
    const Form &definition_;
};

enum class outcome { done, stopped, failed };

struct [[nodiscard]] LoadResult {
    navo::outcome outcome = navo::outcome::failed;
    std::error_code code;  // errc::ok after a whole file, errc::cancelled after a stop
    int line = 0;          // where the reader stood; after a failure the line of the fault
    int lines = 0;         // the file's line count
    std::array<std::string, 5> file_header;
    std::vector<ErrorNote> file_notes;
    explicit operator bool() const noexcept { return outcome == navo::outcome::done; }
};

namespace detail {
struct LoadState {
    void *callable = nullptr;
    bool (*invoke)(void *, const Document &) = nullptr;
    Schema schema;
    bool haveSchema = false;
    std::exception_ptr error;
};

// The C callback of every load started here: calls the callable of the load running on this
// thread. A throwing callable stops the load; load() rethrows once the library has returned.
inline int32_t NAVO_CALL trampoline(dk_Context *ctx, const char *form, int32_t docIndex) noexcept
{
    LoadState *state = active_load;
    if (state == nullptr || state->error)
        return state == nullptr ? 0 : 1;
    try {
        if (!state->haveSchema) {
            state->schema = Schema::of(*ctx);
            state->haveSchema = true;
        }
        static const Form none;
        const Form *definition = state->schema.form(form);
        Document document(ctx, form, docIndex, definition != nullptr ? *definition : none);
        return state->invoke(state->callable, document) ? 0 : 1;
    } catch (...) {
        state->error = std::current_exception();
        return 1;
    }
}

// Puts back the callback and the thread's slot however the load ends.
struct LoadScope {
    explicit LoadScope(LoadState &state) : previous(OnNAVODocument)
    {
        active_load = &state;
        dk_UstawCallBack(&trampoline);
    }
    ~LoadScope()
    {
        dk_UstawCallBack(previous);
        active_load = nullptr;
    }
    LoadScope(const LoadScope &) = delete;
    LoadScope &operator=(const LoadScope &) = delete;
    dk_DocumentCallback previous;
};
}  // namespace detail

// Loads `path` into `ctx`, calling `callback(const Document&)` for each document; the callback
// returns true to go on, false to stop (the document then stays in `ctx`). An exception from the
// callback stops the load and is rethrown when the library has returned.
template <class Callback>
    requires std::is_invocable_r_v<bool, Callback &, const Document &>
LoadResult load(Context &ctx, const std::string &path, Callback &&callback)
{
    LoadResult result;
    if (!ctx) {
        result.code = errc::no_context;
        return result;
    }
    if (detail::active_load != nullptr) {
        result.code = errc::load_in_progress;
        return result;
    }
    std::lock_guard<std::mutex> lock(detail::library_mutex());
    using Target = std::remove_reference_t<Callback>;
    detail::LoadState state;
    state.callable = const_cast<void *>(static_cast<const void *>(std::addressof(callback)));
    state.invoke = [](void *c, const Document &d) -> bool { return std::invoke(*static_cast<Target *>(c), d); };
    int32_t rc;
    {
        detail::LoadScope scope(state);
        rc = dk_LoadNAVO(ctx.get(), path.c_str());
    }
    result.outcome = rc == 1 ? outcome::done : rc == 2 ? outcome::stopped : outcome::failed;
    result.code = static_cast<errc>(dk_GetNAVOError());
    result.line = dk_GetNAVOLine();
    result.lines = i_lLinii;
    const dk_FileHeader &h = ctx.get()->header;
    result.file_header = {h.line1, h.line2, h.line3, h.line4, h.line5};
    result.file_notes = detail::copy_notes(ctx.get()->footer.notes, ctx.get()->footer.noteCount);
    if (state.error)
        std::rethrow_exception(state.error);
    return result;
}

// The same with a context of its own, released before it returns.
template <class Callback>
    requires std::is_invocable_r_v<bool, Callback &, const Document &>
LoadResult load(const std::string &path, Callback &&callback)
{
    std::error_code ec;
    Context ctx(ec);
    if (ec) {
        LoadResult result;
        result.code = ec;
        return result;
    }
    return load(ctx, path, std::forward<Callback>(callback));
}

// ---- Writing -------------------------------------------------------------------------------

// Builds documents of one definition version and saves them as one file. The prolog is set for
// the version, the file header and each new document's header start as blanks at full width, so
// that every saved file loads again. Values may not be wider than their field or line, nor hold
// CR, LF or NUL; they are stored as given and filled with blanks to the width.
class Writer {
public:
    explicit Writer(version v = version::v1_3)
    {
        std::error_code ec;
        Writer made(v, ec);
        detail::throw_if(ec, "navo::Writer");
        *this = std::move(made);
    }
    Writer(version v, std::error_code &ec) : ctx_(detail::defined_context(v, ec))
    {
        if (ec)
            return;
        schema_ = Schema::of(*ctx_.get());
        set_prolog(v, ec);
        if (!ec)
            set_file_header({}, ec);
    }

    const Schema &schema() const noexcept { return schema_; }
    Context &context() noexcept { return ctx_; }

    void set_prolog(version v, std::error_code &ec)
    {
        ec.clear();
        if (!ctx_) {
            ec = errc::no_context;
            return;
        }
        dk_SetDefaultNAVOProlog(ctx_.get(), std::string(version_name(v)).c_str());
    }

    // Up to 5 lines; missing ones are blank.
    void set_file_header(const std::vector<std::string_view> &lines, std::error_code &ec)
    {
        ec.clear();
        if (!ctx_) {
            ec = errc::no_context;
            return;
        }
        dk_FileHeader &h = ctx_.get()->header;
        std::span<char> targets[] = {h.line1, h.line2, h.line3, h.line4, h.line5};
        fill_lines(targets, lines, ec);
    }

    // Adds a document of `form`; gives its index.
    int add_document(std::string_view form, std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        int32_t index = -1;
        if (f == nullptr)
            return -1;
        if (!dk_AddDocument(ctx_.get(), f->name.c_str(), &index)) {
            ec = errc::store_failed;
            return -1;
        }
        set_header(form, index, {}, ec);
        return index;
    }

    // Up to 14 header lines of a document; missing ones are blank.
    void set_header(std::string_view form, int doc, const std::vector<std::string_view> &lines, std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        dk_DocHeader *h = nullptr;
        if (f == nullptr)
            return;
        if (!dk_GetDocHeader(ctx_.get(), f->name.c_str(), doc, &h)) {
            ec = errc::bad_index;
            return;
        }
        std::span<char> targets[] = {h->line1, h->line2,  h->line3,  h->line4,  h->line5,  h->line6,  h->line7,
                                     h->line8, h->line9, h->line10, h->line11, h->line12, h->line13, h->line14};
        fill_lines(targets, lines, ec);
    }

    // Appends a record to a repeating block (a new document has one); gives its index.
    int add_record(std::string_view form, int doc, std::string_view block, std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        const Block *b = f != nullptr ? find_block(*f, block, ec) : nullptr;
        int32_t index = -1;
        if (b == nullptr)
            return -1;
        if (!b->repeating)
            ec = errc::not_repeating;
        else if (!document_exists(*f, doc))
            ec = errc::bad_index;
        else if (!dk_AddBlock(ctx_.get(), f->name.c_str(), doc, b->tag.c_str(), &index))
            ec = errc::store_failed;
        return index;
    }

    void set(std::string_view form, int doc, std::string_view block, int record, std::string_view field,
             std::string_view value, std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        const Block *b = f != nullptr ? find_block(*f, block, ec) : nullptr;
        if (b == nullptr)
            return;
        const Field *fd = b->field(field);
        int32_t count = 1;
        if (fd == nullptr)
            ec = errc::unknown_field;
        else if (value.size() > static_cast<std::size_t>(fd->width))
            ec = errc::value_too_wide;
        else if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
            ec = errc::bad_value;
        else if (!document_exists(*f, doc) || record < 0 ||
                 (b->repeating && dk_GetBlockCount(ctx_.get(), f->name.c_str(), doc, b->tag.c_str(), &count) &&
                  record >= count) ||
                 (!b->repeating && record != 0))
            ec = errc::bad_index;
        else if (!dk_SetField(ctx_.get(), f->name.c_str(), doc, b->tag.c_str(), record, fd->name.c_str(),
                              std::string(value).c_str()))
            ec = errc::store_failed;
    }

    // A note: up to 4 texts of at most 10 characters.
    void add_error_note(std::string_view form, int doc, const std::vector<std::string_view> &texts,
                        std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        dk_ErrorNote note{};
        if (f == nullptr || !fill_note(note, texts, ec))
            return;
        if (!document_exists(*f, doc))
            ec = errc::bad_index;
        else if (!dk_AddDocError(ctx_.get(), f->name.c_str(), doc, &note))
            ec = errc::store_failed;
    }
    void add_file_note(const std::vector<std::string_view> &texts, std::error_code &ec)
    {
        ec.clear();
        dk_ErrorNote note{};
        if (!ctx_)
            ec = errc::no_context;
        else if (fill_note(note, texts, ec) && !dk_AddNAVOError(ctx_.get(), &note))
            ec = errc::store_failed;
    }
    // An OCR note of `kind` 0-3: up to 6 texts of widths 10, 10, 10, 72, 24, 24.
    void add_ocr_note(std::string_view form, int doc, int kind, const std::vector<std::string_view> &texts,
                      std::error_code &ec)
    {
        const Form *f = find_form(form, ec);
        dk_OcrNote note{};
        if (f == nullptr)
            return;
        note.kind = kind;
        std::span<char> targets[] = {note.text1, note.text2, note.text3, note.text4, note.text5, note.text6};
        if (kind < 0 || kind > 3)
            ec = errc::bad_value;
        else if (!document_exists(*f, doc))
            ec = errc::bad_index;
        else if (fill_lines(targets, texts, ec) && !dk_AddDocOCR(ctx_.get(), f->name.c_str(), doc, &note))
            ec = errc::store_failed;
    }

    void save(const std::string &path, std::error_code &ec)
    {
        ec.clear();
        if (!ctx_)
            ec = errc::no_context;
        else if (!dk_SaveNAVO(ctx_.get(), path.c_str(), 1))
            ec = errc::save_failed;
    }

    // Throwing forms of the calls above.
    void set_file_header(const std::vector<std::string_view> &lines)
    {
        run("navo::Writer::set_file_header", [&](std::error_code &ec) { set_file_header(lines, ec); });
    }
    int add_document(std::string_view form)
    {
        std::error_code ec;
        int index = add_document(form, ec);
        detail::throw_if(ec, "navo::Writer::add_document");
        return index;
    }
    void set_header(std::string_view form, int doc, const std::vector<std::string_view> &lines)
    {
        run("navo::Writer::set_header", [&](std::error_code &ec) { set_header(form, doc, lines, ec); });
    }
    int add_record(std::string_view form, int doc, std::string_view block)
    {
        std::error_code ec;
        int index = add_record(form, doc, block, ec);
        detail::throw_if(ec, "navo::Writer::add_record");
        return index;
    }
    void set(std::string_view form, int doc, std::string_view block, int record, std::string_view field,
             std::string_view value)
    {
        run("navo::Writer::set", [&](std::error_code &ec) { set(form, doc, block, record, field, value, ec); });
    }
    void add_error_note(std::string_view form, int doc, const std::vector<std::string_view> &texts)
    {
        run("navo::Writer::add_error_note", [&](std::error_code &ec) { add_error_note(form, doc, texts, ec); });
    }
    void add_file_note(const std::vector<std::string_view> &texts)
    {
        run("navo::Writer::add_file_note", [&](std::error_code &ec) { add_file_note(texts, ec); });
    }
    void add_ocr_note(std::string_view form, int doc, int kind, const std::vector<std::string_view> &texts)
    {
        run("navo::Writer::add_ocr_note", [&](std::error_code &ec) { add_ocr_note(form, doc, kind, texts, ec); });
    }
    void save(const std::string &path)
    {
        run("navo::Writer::save", [&](std::error_code &ec) { save(path, ec); });
    }

private:
    template <class Call>
    static void run(const char *what, Call &&call)
    {
        std::error_code ec;
        call(ec);
        detail::throw_if(ec, what);
    }

    const Form *find_form(std::string_view form, std::error_code &ec) const
    {
        ec.clear();
        if (!ctx_) {
            ec = errc::no_context;
            return nullptr;
        }
        const Form *f = schema_.form(form);
        if (f == nullptr)
            ec = errc::unknown_form;
        return f;
    }
    static const Block *find_block(const Form &form, std::string_view block, std::error_code &ec)
    {
        const Block *b = form.block(block);
        if (b == nullptr)
            ec = errc::unknown_block;
        return b;
    }
    bool document_exists(const Form &form, int doc) const
    {
        int32_t count = 0;
        return doc >= 0 && dk_GetDocCount(ctx_.get(), form.name.c_str(), &count) && doc < count;
    }
    // Each target gets its text filled with blanks to its width (capacity - 1), or all blanks.
    static bool fill_lines(std::span<std::span<char>> targets, const std::vector<std::string_view> &texts,
                           std::error_code &ec)
    {
        if (texts.size() > targets.size()) {
            ec = errc::bad_index;
            return false;
        }
        for (std::size_t i = 0; i < texts.size(); i++) {
            if (texts[i].size() >= targets[i].size()) {
                ec = errc::value_too_wide;
                return false;
            }
            if (texts[i].find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos) {
                ec = errc::bad_value;
                return false;
            }
        }
        for (std::size_t i = 0; i < targets.size(); i++) {
            std::span<char> t = targets[i];
            std::string_view text = i < texts.size() ? texts[i] : std::string_view();
            std::fill(t.begin(), t.end() - 1, ' ');
            std::copy(text.begin(), text.end(), t.begin());
            t.back() = '\0';
        }
        return true;
    }
    static bool fill_note(dk_ErrorNote &note, const std::vector<std::string_view> &texts, std::error_code &ec)
    {
        std::span<char> targets[] = {note.text1, note.text2, note.text3, note.text4};
        return fill_lines(targets, texts, ec);
    }

    Context ctx_{nullptr};
    Schema schema_;
};

}  // namespace navo

#endif  // NAVO_HPP

// interchange/file_loader.cpp - the file loader: prolog, version choice, header, sections, footer.
#include "interchange/file_loader.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "core/allocator.hpp"
#include "core/status.hpp"
#include "interchange/document_loader.hpp"
#include "platform/file_handle.hpp"
#include "interchange/format.hpp"
#include "interchange/scanner.hpp"
#include "platform/file_input.hpp"

namespace navo::interchange {

namespace {

// Which embedded definition the prolog asks for: "wersja " and, 8 characters behind its start,
// the value of version 1.3 select that version; anything else is version 1.2.
const char *choose_definition(std::string_view versionLine) noexcept
{
    const std::size_t word = versionLine.find(prolog::version_word);
    if (word != std::string_view::npos &&
        begins_with(after(versionLine, word + prolog::version_value_offset), prolog::version_value_1_3))
        return GetDefTXT_1_3();
    return GetDefTXT_1_2();
}

// The store, definition 0 and the file's notes of an earlier load go.
void empty_context(dk_Context &ctx) noexcept
{
    if (ctx.formCount > 0)
        dk_RemoveAllDocuments(&ctx);
    dk_dfDestroyDefinition(ctx.definitions, 0);
    if (ctx.footer.noteCount > 0 || ctx.footer.notes != nullptr) {
        memory::release(ctx.footer.notes);
        ctx.footer.notes = nullptr;
        ctx.footer.noteCount = 0;
    }
}

// The chosen text as definition 0 and new tables with a pool of 10; the old tables, emptied
// before, are released by dk_InitDocuments itself. Without a definition and tables the load
// cannot go on, so a failure here ends it with the catalogue's out-of-memory code
// (docs/decisions.md).
bool load_definition_and_tables(dk_Context &ctx, const char *text) noexcept
{
    return dk_dfLoadDefinition(ctx.definitions, ctx.dictionary, text) && dk_InitDocuments(&ctx, load_pool_capacity);
}

// One load: the buffered view of its input (the caller owns and closes the file), its line
// buffer, the element text that every element of the load reuses, and the place of a fault.
class FileLoad {
public:
    FileLoad(dk_Context &ctx, platform::FileInput &source, const LoadHooks &hooks) noexcept
        : ctx_(ctx), input_(source), trace_(hooks, input_), place_(trace_.place)
    {
    }
    FileLoad(const FileLoad &) = delete;
    FileLoad &operator=(const FileLoad &) = delete;

    std::int32_t run() noexcept;

private:
    // A fault outside the sections: final.
    std::int32_t fail(std::int32_t code) noexcept
    {
        trace_.raise(code);
        trace_.report(code);
        return 0;
    }
    std::string_view line() const noexcept { return text_of(line_); }
    bool read_count(std::int32_t count) noexcept { return interchange::read_count(input_, line_, count); }
    bool skip_through_greater(std::span<char> kept) noexcept;
    std::int32_t prolog_and_header() noexcept;
    std::int32_t sections() noexcept;
    std::int32_t footer() noexcept;

    dk_Context &ctx_;
    BulkInput input_;
    LoadTrace trace_;
    FaultPlace &place_;
    std::array<char, read_buffer_size> line_{};
    TextBuffer text_;
    std::int32_t firstFault_ = navo::status::none;  // of a load that goes on past faulty sections
};

// Drops single characters through the next '>'. The dropped characters are kept behind the
// prolog line in `kept` as far as its capacity allows (docs/decisions.md), so that a prolog read
// from a file is stored whole and a save after a load writes a prolog that loads again.
bool FileLoad::skip_through_greater(std::span<char> kept) noexcept
{
    std::size_t length = text_of(kept).size();
    std::array<char, 2> c{};
    do {
        if (!interchange::read_count(input_, c, 1))
            return false;
        if (length + 1 < kept.size())
            kept[length++] = c[0];
    } while (c[0] != '>');
    return true;
}

// Error notes until "</stopka.NAVO>".
std::int32_t FileLoad::footer() noexcept
{
    dk_FileFooter &footer = ctx_.footer;
    for (;;) {
        place_.block[0] = '\0';
        place_.record = -1;
        if (!read_tag(input_, line_))
            return fail(navo::status::unexpected_tag);
        if (line() == tag::file_footer_close)
            return 1;
        if (line() != tag::error_open)
            return fail(navo::status::unexpected_tag);
        std::copy_n("BLAD", 5, place_.block);
        place_.record = footer.noteCount;
        if (!read_element(input_, text_, std::nullopt))
            return fail(navo::status::read_failed);
        dk_ErrorNote *note = memory::append_zeroed(footer.notes, footer.noteCount);
        if (note == nullptr)
            return fail(navo::status::out_of_memory);
        cut_lines(*note, error_note_lines, text_.c_str());
    }
}

// Sections until the file footer. A section that fails ends the load, or with keepGoing is
// reported and passed: the scan goes on from where its reading stopped.
std::int32_t FileLoad::sections() noexcept
{
    std::int32_t number = 0;
    for (;;) {
        // A file that ends before its footer fails here.
        place_.area = Area::footer;
        if (!next_section(input_, line_))
            return fail(navo::status::unexpected_tag);
        if (line().find(tag::section_suffix) != std::string_view::npos) {
            const SectionResult result = load_document(ctx_, input_, text_, line(), ++number, trace_);
            if (result == SectionResult::delivered) {
                place_ = FaultPlace{};
                continue;
            }
            if (result == SectionResult::stopped) {
                raise_error(navo::status::cancelled);
                return 2;
            }
            trace_.raise(navo::status::bad_document);
            trace_.report(navo::status::bad_document);
            if (!trace_.hooks.keepGoing)
                return 0;
            if (firstFault_ == navo::status::none)
                firstFault_ = navo::status::bad_document;
            continue;
        }
        if (line() != tag::file_footer_open)
            return fail(navo::status::unexpected_tag);
        return footer();
    }
}

// The prolog, the definition it chooses, "<NAVO>" and the file header.
std::int32_t FileLoad::prolog_and_header() noexcept
{
    // The first two prolog lines by fixed lengths.
    place_.area = Area::prolog;
    dk_FileProlog &prolog = ctx_.prolog;
    if (!read_count(prolog::read_doctype))
        return fail(navo::status::read_failed);
    if (!begins_with(line(), prolog::doctype_head))
        return fail(navo::status::not_navo);
    std::fill(std::begin(prolog.doctypeLine), std::end(prolog.doctypeLine), '\0');
    std::copy_n(line_.data(), prolog::read_doctype, prolog.doctypeLine);
    if (!read_count(prolog::read_version))
        return fail(navo::status::read_failed);
    std::fill(std::begin(prolog.versionLine), std::end(prolog.versionLine), '\0');
    std::copy_n(line_.data(), prolog::read_version, prolog.versionLine);

    if (!load_definition_and_tables(ctx_, choose_definition(prolog.versionLine)))
        return fail(navo::status::out_of_memory);

    // The rest of the prolog and "<NAVO>".
    if (prolog.versionLine[prolog::read_version - 1] != '>' && !skip_through_greater(prolog.versionLine))
        return fail(navo::status::read_failed);
    if (!read_count(prolog::read_encoding))
        return fail(navo::status::read_failed);
    std::fill(std::begin(prolog.encodingLine), std::end(prolog.encodingLine), '\0');
    std::copy_n(line_.data(), prolog::read_encoding, prolog.encodingLine);
    if (prolog.encodingLine[prolog::read_encoding - 1] != '>' && !skip_through_greater(prolog.encodingLine))
        return fail(navo::status::read_failed);
    place_.area = Area::file_header;
    if (!read_count(static_cast<std::int32_t>(tag::navo_open.size())))
        return fail(navo::status::read_failed);
    if (line() != tag::navo_open)
        return fail(navo::status::unexpected_tag);

    // The file header of exactly its length.
    if (!read_tag(input_, line_) || line() != tag::file_header_open)
        return fail(navo::status::unexpected_tag);
    if (!read_element(input_, text_, std::nullopt))
        return fail(navo::status::read_failed);
    if (const std::size_t length = std::strlen(text_.c_str()); length != static_cast<std::size_t>(file_header_length)) {
        place_.expected = file_header_length;
        place_.found = static_cast<std::int32_t>(std::min<std::size_t>(length, std::numeric_limits<std::int32_t>::max()));
        place_wrong_line(place_, text_, file_header_lines);
        return fail(navo::status::read_failed);
    }
    ctx_.header = dk_FileHeader{};
    cut_lines(ctx_.header, file_header_lines, text_.c_str());
    if (trace_.hooks.header != nullptr)
        trace_.hooks.header(trace_.hooks.user, ctx_);
    return 1;
}

std::int32_t FileLoad::run() noexcept
{
    // The line count: one more than the lines fgets finds, as hosts have always been told,
    // counted over the buffer in runs between LFs (interchange/scanner).
    navo::status::set_lines(input_.count_lines());

    empty_context(ctx_);

    std::int32_t result = prolog_and_header();
    if (result == 1)
        result = sections();
    // A load that went on past a faulty section ends as that fault.
    if (firstFault_ != navo::status::none && result != 2) {
        navo::status::set_last_error(firstFault_);
        return 0;
    }
    return result;
}

// The exported callback, as the `document` hook of dk_LoadNAVO.
std::int32_t deliver_to_host(void *, dk_Context &ctx, const char *form, std::int32_t docIndex, std::int32_t) noexcept
{
    return dk_OnNAVODocument(&ctx, form, docIndex);
}

}  // namespace

std::int32_t load_file(dk_Context &ctx, const char *path, const LoadHooks &hooks) noexcept
{
    navo::status::set_last_error(navo::status::none);
    navo::status::set_line(1);
    platform::FileInput source;
    if (path == nullptr || !source.open(path)) {
        navo::status::set_last_error(navo::status::open_failed);
        // Nothing was read: the fault has no place in the file.
        if (hooks.fault != nullptr) {
            FaultPlace place;
            place.code = place.cause = navo::status::open_failed;
            place.line = 1;
            hooks.fault(hooks.user, place);
        }
        return 0;
    }
    FileLoad load(ctx, source, hooks);
    return load.run();
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_LoadNAVO(dk_Context *ctx, const char *path) noexcept
{
    if (ctx == nullptr || path == nullptr)
        return 0;
    navo::interchange::LoadHooks hooks;
    hooks.document = navo::interchange::deliver_to_host;
    return navo::interchange::load_file(*ctx, path, hooks);
}

}  // extern "C"

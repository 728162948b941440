// interchange/envelope.cpp - envelope operations: the prolog, headers and notes of file and document.
#include "interchange/envelope.hpp"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>
#include <string_view>

#include "core/allocator.hpp"
#include "interchange/format.hpp"
#include "store/document_tables.hpp"

namespace navo::interchange {

namespace {

// start + version + end into the cleared line; the caller has checked that the version fits.
template <std::size_t Capacity>
void set_prolog_line(char (&line)[Capacity], std::string_view start, std::string_view version,
                     std::string_view end) noexcept
{
    static_assert(Capacity > 0);
    std::fill(std::begin(line), std::end(line), '\0');
    char *out = std::copy(start.begin(), start.end(), line);
    out = std::copy(version.begin(), version.end(), out);
    std::copy(end.begin(), end.end(), out);
}

// The last text of a note has nothing of the record behind it to run on into; a host record
// whose last text lacks its terminator is refused before anything changes (docs/decisions.md).
bool last_text_terminated(std::span<const char> note, std::span<const Line> lines) noexcept
{
    const Line &last = lines.back();
    const std::span<const char> text = note.subspan(last.member, static_cast<std::size_t>(last.width) + 1);
    return std::find(text.begin(), text.end(), '\0') != text.end();
}

// Each text shorter than its width gets blanks up to the width and its terminator at the last
// byte; a text without a terminator in its capacity stays as it is.
void fill_texts(std::span<char> note, std::span<const Line> lines) noexcept
{
    for (const Line &line : lines) {
        const std::span<char> text = note.subspan(line.member, static_cast<std::size_t>(line.width) + 1);
        const auto end = std::find(text.begin(), text.end(), '\0');
        if (end != text.end()) {
            std::fill(end, text.end() - 1, ' ');
            text.back() = '\0';
        }
    }
}

// One more element, or on failure a count of 0 with the array kept as it was; the next add then
// resizes to one element, which shrinks it. Gives the new element or null.
template <class Note>
Note *grow(Note *&array, std::int32_t &count) noexcept
{
    const std::int32_t next = count > 0 ? count + 1 : 1;
    if (!memory::resize_array(array, static_cast<std::size_t>(next))) {
        count = 0;
        return nullptr;
    }
    count = next;
    return &array[next - 1];
}

// Adds a copy of `note` to a list of notes, its texts filled to their widths.
template <class Note, std::size_t N>
bool add_note(Note *&notes, std::int32_t &count, const Note &note, const std::array<Line, N> &lines) noexcept
{
    if (!last_text_terminated(bytes_of(note), lines))
        return false;
    Note *added = grow(notes, count);
    if (added == nullptr)
        return false;
    *added = note;
    fill_texts(bytes_of(*added), lines);
    return true;
}

}  // namespace

dk_Document *find_document(dk_Context *ctx, const char *form, std::int32_t docIndex) noexcept
{
    store::Target target;
    if (!store::find_form(ctx, form, target) || !store::find_document(target, docIndex))
        return nullptr;
    return target.document;
}

}  // namespace navo::interchange

extern "C" {

NAVO_API int32_t NAVO_CALL dk_SetDefaultNAVOProlog(dk_Context *ctx, const char *version) noexcept
{
    using namespace navo::interchange;
    if (ctx == nullptr || version == nullptr)
        return 0;
    // Counted only up to one past the limit: the host's text need not end soon.
    std::size_t length = 0;
    while (length <= prolog::version_length && version[length] != '\0')
        length++;
    if (length > prolog::version_length)
        return 0;
    const std::string_view chosen{version, length};
    set_prolog_line(ctx->prolog.doctypeLine, prolog::doctype_start, chosen, prolog::doctype_end);
    set_prolog_line(ctx->prolog.versionLine, prolog::version_start, chosen, prolog::version_end);
    set_prolog_line(ctx->prolog.encodingLine, prolog::encoding, {}, {});
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOProlog(dk_Context *ctx, dk_FileProlog **out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = ctx == nullptr ? nullptr : &ctx->prolog;
    return ctx != nullptr;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOHeader(dk_Context *ctx, dk_FileHeader **out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = ctx == nullptr ? nullptr : &ctx->header;
    return ctx != nullptr;
}

NAVO_API int32_t NAVO_CALL dk_GetNAVOFooter(dk_Context *ctx, dk_FileFooter **out) noexcept
{
    if (out == nullptr)
        return 0;
    *out = ctx == nullptr ? nullptr : &ctx->footer;
    return ctx != nullptr;
}

// The document getters leave `out` as it was on failure, unlike the library's general rule.
NAVO_API int32_t NAVO_CALL dk_GetDocHeader(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocHeader **out) noexcept
{
    if (out == nullptr)
        return 0;
    dk_Document *document = navo::interchange::find_document(ctx, form, docIndex);
    if (document == nullptr)
        return 0;
    *out = &document->header;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_GetDocFooter(dk_Context *ctx, const char *form, int32_t docIndex, dk_DocFooter **out) noexcept
{
    if (out == nullptr)
        return 0;
    dk_Document *document = navo::interchange::find_document(ctx, form, docIndex);
    if (document == nullptr)
        return 0;
    *out = &document->footer;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_AddNAVOError(dk_Context *ctx, const dk_ErrorNote *note) noexcept
{
    if (ctx == nullptr || note == nullptr)
        return 0;
    return navo::interchange::add_note(ctx->footer.notes, ctx->footer.noteCount, *note,
                                       navo::interchange::error_note_lines);
}

NAVO_API int32_t NAVO_CALL dk_AddDocError(dk_Context *ctx, const char *form, int32_t docIndex,
                                          const dk_ErrorNote *note) noexcept
{
    if (note == nullptr)
        return 0;
    dk_Document *document = navo::interchange::find_document(ctx, form, docIndex);
    if (document == nullptr)
        return 0;
    return navo::interchange::add_note(document->footer.errorNotes, document->footer.errorCount, *note,
                                       navo::interchange::error_note_lines);
}

NAVO_API int32_t NAVO_CALL dk_AddDocOCR(dk_Context *ctx, const char *form, int32_t docIndex, const dk_OcrNote *note) noexcept
{
    if (note == nullptr)
        return 0;
    dk_Document *document = navo::interchange::find_document(ctx, form, docIndex);
    if (document == nullptr)
        return 0;
    // kind is copied with the rest and not tested: the writer decides what it means.
    return navo::interchange::add_note(document->footer.ocrNotes, document->footer.ocrCount, *note,
                                       navo::interchange::ocr_note_lines);
}

}  // extern "C"

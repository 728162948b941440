// interchange/document_loader.cpp - the document loader: header, blocks in form order, notes, the host's verdict.
#include "interchange/document_loader.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "core/allocator.hpp"
#include "core/status.hpp"
#include "interchange/format.hpp"
#include "interchange/scanner.hpp"
#include "store/document_tables.hpp"
#include "store/record_appender.hpp"

namespace navo::interchange {

namespace {

// A form name of the definition has at most 19 characters; a longer one is no form's.
constexpr std::size_t form_name_max = 19;

// What a block element gives when its tag filled the whole buffer: a failure without a code.
constexpr std::int32_t tag_too_long = -1;

const LoadObserver *observer = nullptr;

bool is_space_or_cr(std::int32_t c) noexcept
{
    return c == ' ' || c == '\r';
}

// "</" form end: the closing tag of a form's body or of its whole section.
bool is_closing_tag(std::string_view tag, std::string_view form, std::string_view end) noexcept
{
    return tag.size() == tag::close_start.size() + form.size() + end.size() && begins_with(tag, tag::close_start) &&
           first(after(tag, tag::close_start.size()), form.size()) == form && finishes_with(tag, end);
}

// One section's working state. The document it adds is removed again when the section ends,
// unless the host keeps it; the element text is released whichever way the section ends.
class Section {
public:
    Section(dk_Context &ctx, BulkInput &input, TextBuffer &text) noexcept : ctx_(ctx), input_(input), text_(text) {}
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;
    ~Section()
    {
        if (observer != nullptr && observer->onSection != nullptr)
            observer->onSection(observer->user, appender_.writes(), appender_.batched(), appender_.prefilled());
        if (added_ && !kept_)
            dk_RemoveDocument(&ctx_, form_.data(), docIndex_);
    }

    SectionResult load(std::string_view section) noexcept;

private:
    // A batch of records the spool file refused fails the section as the literal add that met
    // the refusal would have, earlier than any later failure (docs/decisions.md).
    SectionResult fail(std::int32_t code) noexcept
    {
        raise_error(appender_.settle() ? code : navo::status::bad_block_size);
        return SectionResult::failed;
    }
    std::string_view tag() const noexcept { return text_of(tag_); }
    bool read_tag() noexcept { return interchange::read_tag(input_, tag_); }
    bool read_text(std::optional<std::string_view> block = std::nullopt) noexcept
    {
        return read_element(input_, text_, block);
    }

    std::int32_t header() noexcept;
    std::int32_t block_element() noexcept;
    void fill_record() noexcept;
    std::int32_t error_note() noexcept;
    std::int32_t ocr_note() noexcept;
    std::int32_t footer() noexcept;

    dk_Context &ctx_;
    BulkInput &input_;
    std::array<char, form_name_max + 1> form_{};
    std::int32_t docIndex_ = -1;
    bool added_ = false;
    bool kept_ = false;
    TextBuffer &text_;  // the load's, reused by every element
    std::array<char, read_buffer_size> tag_{};
    std::array<char, read_buffer_size> block_{};
    std::int32_t lastPosition_ = -1;
    bool repeatSeen_ = false;
    std::int32_t recordIndex_ = 0;
    store::Target target_;  // the form and the new document; per element, its block
    store::RecordAppender appender_;
};

// "<naglowek.DP>", the header text of exactly its length, cut into lines.
std::int32_t Section::header() noexcept
{
    std::int32_t c = 0;
    do
        c = read_char(input_);
    while (is_space_or_cr(c));
    tag_.fill('\0');
    tag_[0] = static_cast<char>(c);
    if (!read_count(input_, std::span{tag_}.subspan(1), static_cast<std::int32_t>(tag::doc_header_open.size() - 1)))
        return navo::status::read_failed;
    if (tag() != tag::doc_header_open)
        return navo::status::unexpected_tag;
    if (!read_text())
        return navo::status::read_failed;
    const std::string_view text{text_.c_str()};
    if (text.size() != static_cast<std::size_t>(doc_header_length))
        return navo::status::read_failed;
    cut_lines(target_.document->header, doc_header_lines, text);
    return navo::status::none;
}

// The element's text goes straight into the field cache of the record under the cursor, cut by
// the field widths; the next cursor move or add writes it to the spool.
void Section::fill_record() noexcept
{
    dk_lfBlock &store = *target_.store;
    const char *from = text_.c_str();
    for (std::int32_t i = 0; i < target_.block->fieldCount; i++) {
        dk_lfField &slot = store.fields[i];
        const auto width = static_cast<std::size_t>(target_.block->fields[i].width);
        std::memcpy(slot.text, from, width);
        from += width;
        slot.loaded = 1;
        slot.dirty = 1;
    }
    store.dirty = 1;
}

// One block element whose opening tag is in tag_.
std::int32_t Section::block_element() noexcept
{
    const auto end = std::find(tag_.begin(), tag_.end(), '>');
    if (end == tag_.end())
        return tag_too_long;
    const auto name = std::copy(tag_.begin() + 1, end, block_.begin());
    *name = '\0';
    if (!read_text(std::string_view{block_.data()}))
        return navo::status::read_failed;
    store::Target &t = target_;
    // The store's lookup refuses a tag the dictionary lacks and one that is no block of this form.
    if (!store::find_block(ctx_, block_.data(), t))
        return navo::status::unexpected_block;
    if (std::strlen(text_.c_str()) != static_cast<std::size_t>(t.block->recordLength))
        return navo::status::bad_block_size;
    if (lastPosition_ == -1) {
        if (t.position != 0)
            return navo::status::unexpected_block;
    } else {
        const std::int32_t step = t.position - lastPosition_;
        if (!(step == 1 || (t.repeating && step == 0)))
            return navo::status::unexpected_block;
    }
    lastPosition_ = t.position;
    if (t.repeating) {
        if (!repeatSeen_)
            repeatSeen_ = true;
        else if (!appender_.add(ctx_, form_.data(), docIndex_, block_.data(), t, recordIndex_))
            return navo::status::bad_block_size;
    }
    fill_record();
    if (t.repeating) {
        appender_.filled(t, std::string_view{text_.c_str(), static_cast<std::size_t>(t.block->recordLength)});
        if (observer != nullptr && observer->onBlock != nullptr)
            observer->onBlock(observer->user, form_.data(), docIndex_, block_.data(), recordIndex_);
        dk_OnNAVOBlock(&ctx_, form_.data(), docIndex_, block_.data(), recordIndex_);
    }
    return navo::status::none;
}

// A <BLAD> note of the document.
std::int32_t Section::error_note() noexcept
{
    dk_DocFooter &footer = target_.document->footer;
    if (!read_text())
        return navo::status::read_failed;
    dk_ErrorNote *note = memory::append_zeroed(footer.errorNotes, footer.errorCount);
    if (note == nullptr)
        return navo::status::out_of_memory;
    cut_lines(*note, error_note_lines, text_.c_str());
    return navo::status::none;
}

// An <OCR.x> note of the document; the kind comes from the tag.
std::int32_t Section::ocr_note() noexcept
{
    dk_DocFooter &footer = target_.document->footer;
    if (!read_text())
        return navo::status::read_failed;
    dk_OcrNote *note = memory::append_zeroed(footer.ocrNotes, footer.ocrCount);
    if (note == nullptr)
        return navo::status::out_of_memory;
    note->kind = ocr_kind_of_tag(after(tag(), tag::ocr_open_prefix.size()));
    cut_lines(*note, ocr_note_lines, text_.c_str());
    return navo::status::none;
}

// The footer's opening tag, then notes until "</stopka.DP>".
std::int32_t Section::footer() noexcept
{
    if (!read_tag())
        return navo::status::unexpected_tag;
    for (;;) {
        if (!read_tag())
            return navo::status::unexpected_tag;
        std::int32_t code = navo::status::none;
        if (tag() == tag::doc_footer_close)
            return navo::status::none;
        if (tag() == tag::error_open)
            code = error_note();
        else if (begins_with(tag(), tag::ocr_open_prefix))
            code = ocr_note();
        if (code != navo::status::none)
            return code;
    }
}

SectionResult Section::load(std::string_view section) noexcept
{
    // The form's name: what stands between the "<" and ".DP>".
    const std::string_view rest = after(section, 1);
    const std::string_view form = first(rest, rest.find(tag::section_suffix));
    if (form.size() <= form_name_max)
        std::copy(form.begin(), form.end(), form_.begin());
    if (form.size() > form_name_max || !dk_AddDocument(&ctx_, form_.data(), &docIndex_))
        return fail(navo::status::add_document_failed);
    added_ = true;
    store::find_form(&ctx_, form_.data(), target_);
    store::find_document(target_, docIndex_);

    if (const std::int32_t code = header(); code != navo::status::none)
        return fail(code);

    // The body: block elements in form order until "</" form ">".
    const std::string_view name{form_.data()};
    if (!read_tag())
        return fail(navo::status::unexpected_tag);
    for (;;) {
        if (!read_tag())
            return fail(navo::status::unexpected_tag);
        if (is_closing_tag(tag(), name, tag::end))
            break;
        const std::int32_t code = block_element();
        if (code == tag_too_long)
            return appender_.settle() ? SectionResult::failed : fail(navo::status::bad_block_size);
        if (code != navo::status::none)
            return fail(code);
    }

    // The records reach the spool file before anything else can fail or the host can look.
    if (!appender_.settle())
        return fail(navo::status::bad_block_size);
    if (const std::int32_t code = footer(); code != navo::status::none)
        return fail(code);

    // "</" form ".DP>", then the host's verdict.
    if (!read_tag() || !is_closing_tag(tag(), name, tag::section_suffix))
        return fail(navo::status::unexpected_tag);
    kept_ = dk_OnNAVODocument(&ctx_, form_.data(), docIndex_) != 0;
    return kept_ ? SectionResult::stopped : SectionResult::delivered;
}

}  // namespace

void set_load_observer(const LoadObserver *watcher) noexcept
{
    observer = watcher;
}

void raise_error(std::int32_t code) noexcept
{
    navo::status::set_last_error(code);
    if (observer != nullptr && observer->onError != nullptr)
        observer->onError(observer->user, code);
    dk_OnNAVOError(code);
}

SectionResult load_document(dk_Context &ctx, BulkInput &input, TextBuffer &text, std::string_view section) noexcept
{
    Section state(ctx, input, text);
    return state.load(section);
}

}  // namespace navo::interchange

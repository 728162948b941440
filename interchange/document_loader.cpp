// interchange/document_loader.cpp - the document loader: header, blocks in form order, notes, the host's verdict.
#include "interchange/document_loader.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
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
static_assert(sizeof(FaultPlace::form) == form_name_max + 1);

// What a block element gives when its tag filled the whole buffer: a failure without a code.
constexpr std::int32_t tag_too_long = -1;

#if defined(NAVO_TEST_HOOKS)
const LoadObserver *observer = nullptr;
#endif

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

// `text` into a terminated array of the place, cut to fit.
template <std::size_t N>
void copy_name(char (&out)[N], std::string_view text) noexcept
{
    const std::size_t length = std::min(text.size(), N - 1);
    std::copy_n(text.data(), length, out);
    out[length] = '\0';
}

// A length that fits the place's numbers.
std::int32_t length_of(std::size_t length) noexcept
{
    return static_cast<std::int32_t>(std::min<std::size_t>(length, std::numeric_limits<std::int32_t>::max()));
}

// One section's working state. The document it adds is removed again when the section ends,
// unless the host keeps it; the element text is released whichever way the section ends.
class Section {
public:
    Section(dk_Context &ctx, BulkInput &input, TextBuffer &text, std::int32_t number, LoadTrace &trace) noexcept
        : ctx_(ctx), input_(input), number_(number), trace_(trace), place_(trace.place), text_(text)
    {
    }
    Section(const Section &) = delete;
    Section &operator=(const Section &) = delete;
    ~Section()
    {
#if defined(NAVO_TEST_HOOKS)
        if (observer != nullptr && observer->onSection != nullptr)
            observer->onSection(observer->user, appender_.writes(), appender_.batched(), appender_.prefilled());
#endif
        if (added_ && !kept_)
            dk_RemoveDocument(&ctx_, form_.data(), docIndex_);
    }

    SectionResult load(std::string_view section) noexcept;

private:
    // A batch of records the spool file refused fails the section as the literal add that met
    // the refusal would have, earlier than any later failure (docs/decisions.md).
    SectionResult fail(std::int32_t code) noexcept
    {
        trace_.raise(settle() ? code : navo::status::bad_block_size);
        return SectionResult::failed;
    }
    // The pending records to the spool file; a refusal is placed at the repeating block.
    bool settle() noexcept;
    std::string_view tag() const noexcept { return text_of(tag_); }
    bool read_tag() noexcept { return interchange::read_tag(input_, tag_); }
    bool read_text(std::optional<std::string_view> block = std::nullopt) noexcept
    {
        return read_element(input_, text_, block);
    }

    std::int32_t header() noexcept;
    std::int32_t block_element() noexcept;
    std::int32_t element_fault(std::int32_t code, bool textRead) noexcept;
    void fill_record() noexcept;
    std::int32_t error_note() noexcept;
    std::int32_t ocr_note() noexcept;
    std::int32_t footer() noexcept;

    dk_Context &ctx_;
    BulkInput &input_;
    std::int32_t number_;
    LoadTrace &trace_;
    FaultPlace &place_;
    const char *formName_ = nullptr;  // the definition's spelling, for the record hook
    std::array<char, form_name_max + 1> form_{};
    std::int32_t docIndex_ = -1;
    bool added_ = false;
    bool kept_ = false;
    TextBuffer &text_;  // the load's, reused by every element
    std::array<char, read_buffer_size> tag_{};
    std::array<char, read_buffer_size> block_{};
    std::int32_t lastPosition_ = -1;
    std::int32_t recordsOfLast_ = 0;  // elements of the block at lastPosition_ so far
    bool repeatSeen_ = false;
    std::int32_t repeatPosition_ = -1;  // the repeating block whose records the appender batches
    std::int32_t recordIndex_ = 0;
    store::Target target_;  // the form and the new document; per element, its block
    store::RecordAppender appender_;
};

bool Section::settle() noexcept
{
    if (appender_.settle())
        return true;
    // The refused add is one of the block's records behind the first; which one the line tells.
    place_.area = Area::body;
    place_.blockPosition = repeatPosition_;
    place_.record = -1;
    place_.expected = place_.found = place_.field = place_.fieldExpected = place_.fieldFound = -1;
    place_.block[0] = '\0';
    if (repeatPosition_ >= 0) {
        const dk_dfBlock &block = target_.definition->blocks[target_.form->refs[repeatPosition_].blockIndex];
        copy_name(place_.block, ctx_.dictionary->strings[block.tagId]);
    }
    return false;
}

// "<naglowek.DP>", the header text of exactly its length, cut into lines.
std::int32_t Section::header() noexcept
{
    place_.area = Area::document_header;
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
    if (text.size() != static_cast<std::size_t>(doc_header_length)) {
        place_.expected = doc_header_length;
        place_.found = length_of(text.size());
        place_wrong_line(place_, text_, doc_header_lines);
        return navo::status::read_failed;
    }
    cut_lines(target_.document->header, doc_header_lines, text);
    return navo::status::none;
}

// The element's text goes straight into the field cache of the record under the cursor, cut by
// the field widths; the next cursor move or add writes it to the spool. The block's fields and
// the store's slots are taken once: a copy of bytes could change anything for all the compiler
// knows, and it would fetch them again for every field.
void Section::fill_record() noexcept
{
    dk_lfBlock &store = *target_.store;
    const dk_dfField *const fields = target_.block->fields;
    dk_lfField *const slots = store.fields;
    const std::int32_t count = target_.block->fieldCount;
    const char *from = text_.c_str();
    for (std::int32_t i = 0; i < count; i++) {
        dk_lfField &slot = slots[i];
        const auto width = static_cast<std::size_t>(fields[i].width);
        std::memcpy(slot.text, from, width);
        from += width;
        slot.loaded = 1;
        slot.dirty = 1;
    }
    store.dirty = 1;
}

// The place of a fault of the element in block_: its block, where it would stand, the lengths.
std::int32_t Section::element_fault(std::int32_t code, bool textRead) noexcept
{
    copy_name(place_.block, block_.data());
    place_.previousPosition = lastPosition_;
    store::Target probe = target_;
    const bool known = store::find_block(ctx_, block_.data(), probe);
    if (known) {
        place_.blockPosition = probe.position;
        place_.record = probe.repeating && probe.position == lastPosition_ ? recordsOfLast_ : 0;
        place_.expected = probe.block->recordLength;
    }
    if (!textRead)
        return code;
    place_.found = length_of(std::strlen(text_.c_str()));
    if (known && code == navo::status::bad_block_size && place_.expected != place_.found) {
        // The fields' widths as lines of the text; more fields than a text keeps lines for name none.
        const dk_dfBlock &block = *probe.block;
        std::array<Line, TextBuffer::max_breaks + 1> lines{};
        if (block.fieldCount <= static_cast<std::int32_t>(lines.size())) {
            for (std::int32_t i = 0; i < block.fieldCount; i++)
                lines[static_cast<std::size_t>(i)] = Line{0, block.fields[i].width, block.fields[i].offset};
            place_wrong_line(place_, text_, std::span{lines}.first(static_cast<std::size_t>(block.fieldCount)));
        }
    }
    return code;
}

// One block element whose opening tag is in tag_.
std::int32_t Section::block_element() noexcept
{
    const auto end = std::find(tag_.begin(), tag_.end(), '>');
    if (end == tag_.end()) {
        copy_name(place_.block, after(std::string_view{tag_.data(), tag_.size()}, 1));
        place_.previousPosition = lastPosition_;
        return tag_too_long;
    }
    const auto name = std::copy(tag_.begin() + 1, end, block_.begin());
    *name = '\0';
    if (!read_text(std::string_view{block_.data()}))
        return element_fault(navo::status::read_failed, false);
    store::Target &t = target_;
    // The store's lookup refuses a tag the dictionary lacks and one that is no block of this form.
    if (!store::find_block(ctx_, block_.data(), t))
        return element_fault(navo::status::unexpected_block, true);
    if (std::strlen(text_.c_str()) != static_cast<std::size_t>(t.block->recordLength))
        return element_fault(navo::status::bad_block_size, true);
    if (lastPosition_ == -1) {
        if (t.position != 0)
            return element_fault(navo::status::unexpected_block, true);
    } else {
        const std::int32_t step = t.position - lastPosition_;
        if (!(step == 1 || (t.repeating && step == 0)))
            return element_fault(navo::status::unexpected_block, true);
    }
    const std::int32_t records = t.position == lastPosition_ ? recordsOfLast_ + 1 : 1;
    if (const LoadHooks &hooks = trace_.hooks; hooks.record != nullptr) {
        const RecordSeen seen{number_, formName_, docIndex_, t.position, records - 1,
                              {text_.c_str(), static_cast<std::size_t>(t.block->recordLength)}};
        hooks.record(hooks.user, ctx_, seen);
    }
    if (t.repeating) {
        if (!repeatSeen_) {
            repeatSeen_ = true;
            repeatPosition_ = t.position;
        } else if (!appender_.add(ctx_, form_.data(), docIndex_, block_.data(), t, recordIndex_)) {
            // The add of this record: the element's place, unless a batch before it was refused.
            return settle() ? element_fault(navo::status::bad_block_size, true) : navo::status::bad_block_size;
        }
    }
    recordsOfLast_ = records;
    lastPosition_ = t.position;
    fill_record();
    if (t.repeating) {
        appender_.filled(t, std::string_view{text_.c_str(), static_cast<std::size_t>(t.block->recordLength)});
#if defined(NAVO_TEST_HOOKS)
        if (observer != nullptr && observer->onBlock != nullptr)
            observer->onBlock(observer->user, form_.data(), docIndex_, block_.data(), recordIndex_);
#endif
        dk_OnNAVOBlock(&ctx_, form_.data(), docIndex_, block_.data(), recordIndex_);
    }
    return navo::status::none;
}

// A <BLAD> note of the document.
std::int32_t Section::error_note() noexcept
{
    dk_DocFooter &footer = target_.document->footer;
    copy_name(place_.block, "BLAD");
    place_.record = footer.errorCount;
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
    copy_name(place_.block, "OCR");
    place_.record = footer.ocrCount;
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
    place_.area = Area::notes;
    if (!read_tag())
        return navo::status::unexpected_tag;
    for (;;) {
        place_.block[0] = '\0';
        place_.record = -1;
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
    place_.area = Area::section;
    place_.document = number_;
    copy_name(place_.form, form);
    if (form.size() <= form_name_max)
        std::copy(form.begin(), form.end(), form_.begin());
    if (form.size() > form_name_max || !dk_AddDocument(&ctx_, form_.data(), &docIndex_))
        return fail(navo::status::add_document_failed);
    added_ = true;
    store::find_form(&ctx_, form_.data(), target_);
    store::find_document(target_, docIndex_);
    formName_ = ctx_.dictionary->strings[target_.form->id];

    if (const std::int32_t code = header(); code != navo::status::none)
        return fail(code);

    // The body: block elements in form order until "</" form ">".
    const std::string_view name{form_.data()};
    place_.area = Area::section;
    if (!read_tag())
        return fail(navo::status::unexpected_tag);
    place_.area = Area::body;
    for (;;) {
        if (!read_tag()) {
            place_.previousPosition = lastPosition_;
            return fail(navo::status::unexpected_tag);
        }
        if (is_closing_tag(tag(), name, tag::end))
            break;
        const std::int32_t code = block_element();
        if (code == tag_too_long)
            return settle() ? SectionResult::failed : fail(navo::status::bad_block_size);
        if (code != navo::status::none)
            return fail(code);
    }

    // The records reach the spool file before anything else can fail or the host can look.
    if (!settle())
        return fail(navo::status::bad_block_size);
    if (const std::int32_t code = footer(); code != navo::status::none)
        return fail(code);

    // "</" form ".DP>", then the host's verdict.
    place_.area = Area::section;
    place_.block[0] = '\0';
    place_.record = -1;
    if (!read_tag() || !is_closing_tag(tag(), name, tag::section_suffix))
        return fail(navo::status::unexpected_tag);
    const LoadHooks &hooks = trace_.hooks;
    kept_ = hooks.document != nullptr && hooks.document(hooks.user, ctx_, form_.data(), docIndex_, number_) != 0;
    return kept_ ? SectionResult::stopped : SectionResult::delivered;
}

}  // namespace

#if defined(NAVO_TEST_HOOKS)
void set_load_observer(const LoadObserver *watcher) noexcept
{
    observer = watcher;
}
#endif

void raise_error(std::int32_t code) noexcept
{
    navo::status::set_last_error(code);
#if defined(NAVO_TEST_HOOKS)
    if (observer != nullptr && observer->onError != nullptr)
        observer->onError(observer->user, code);
#endif
    dk_OnNAVOError(code);
}

void LoadTrace::raise(std::int32_t code) noexcept
{
    raise_error(code);
    if (place.cause != 0)
        return;
    place.cause = code;
    place.line = i_lNumerLinii;
    place.offset = input_.offset();
}

void LoadTrace::report(std::int32_t code) noexcept
{
    place.code = code;
    if (hooks.fault != nullptr)
        hooks.fault(hooks.user, place);
    place = FaultPlace{};
}

void place_wrong_line(FaultPlace &place, const TextBuffer &text, std::span<const Line> lines) noexcept
{
    std::array<std::int32_t, TextBuffer::max_breaks + 1> lengths{};
    if (text_lines(text, lengths) != static_cast<std::int32_t>(lines.size()))
        return;
    for (std::size_t i = 0; i < lines.size(); i++) {
        if (lengths[i] != lines[i].width) {
            place.field = static_cast<std::int32_t>(i);
            place.fieldExpected = lines[i].width;
            place.fieldFound = lengths[i];
            return;
        }
    }
}

SectionResult load_document(dk_Context &ctx, BulkInput &input, TextBuffer &text, std::string_view section,
                            std::int32_t number, LoadTrace &trace) noexcept
{
    Section state(ctx, input, text, number, trace);
    return state.load(section);
}

}  // namespace navo::interchange

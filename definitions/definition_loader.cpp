// definitions/definition_loader.cpp - the definition loader: grammar, interning, offsets, links and maps.
#include "definitions/definition_loader.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "core/allocator.hpp"
#include "core/context.hpp"
#include "core/dictionary.hpp"

namespace navo::definitions {
namespace {

// A line holds at most 199 bytes with its LF; a longer one breaks the grammar.
constexpr std::size_t max_line_length = 199;

// Room for an interned name with its terminator.
using Name = std::array<char, 200>;

// The version line's first bytes that are not looked at ("Wersja ").
constexpr std::size_t version_skip = 7;

// The text being loaded, one line at a time; `line()` is the current one, with its LF.
class LineReader {
public:
    explicit LineReader(std::string_view text) noexcept : text_(text) {}

    // Moves to the next line; false at the end of the text, or at a last line without LF or one
    // longer than max_line_length, which break the grammar (`malformed()` tells them apart).
    // The loader fails on those rather than guess where such a line ends.
    bool advance() noexcept
    {
        line_ = {};
        if (cursor_ >= text_.size())
            return false;
        const std::size_t lineFeed = text_.find('\n', cursor_);
        if (lineFeed == std::string_view::npos || lineFeed + 1 - cursor_ > max_line_length) {
            malformed_ = true;
            cursor_ = text_.size();
            return false;
        }
        line_ = std::string_view{text_.data() + cursor_, lineFeed + 1 - cursor_};
        cursor_ = lineFeed + 1;
        return true;
    }

    [[nodiscard]] std::string_view line() const noexcept { return line_; }
    [[nodiscard]] bool malformed() const noexcept { return malformed_; }

private:
    std::string_view text_;
    std::string_view line_;
    std::size_t cursor_ = 0;
    bool malformed_ = false;
};

// Splits a line into tokens as the standard tokenizer does (a run of delimiters counts as one,
// no empty token, and once a token reaches the end nothing follows), each call with its own
// delimiters; the state is this object, so nothing is shared with a host's strtok.
class Tokens {
public:
    explicit Tokens(std::string_view text) noexcept : rest_(text) {}

    std::optional<std::string_view> next(std::string_view delimiters) noexcept
    {
        const std::size_t start = rest_.find_first_not_of(delimiters);
        if (start == std::string_view::npos) {
            rest_ = {};
            return std::nullopt;
        }
        const std::size_t end = rest_.find_first_of(delimiters, start);
        const std::size_t stop = end == std::string_view::npos ? rest_.size() : end;
        const std::string_view token{rest_.data() + start, stop - start};
        rest_.remove_prefix(stop == rest_.size() ? stop : stop + 1);
        return token;
    }

private:
    std::string_view rest_;
};

// atoi's reading (white space, sign, digits, stop at the first other byte), saturating
// instead of overflowing.
std::int32_t number(std::string_view text) noexcept
{
    constexpr std::int64_t largest = std::numeric_limits<std::int32_t>::max();
    constexpr std::int64_t smallest = std::numeric_limits<std::int32_t>::min();
    std::size_t i = 0;
    while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i])))
        i++;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-'))
        negative = text[i++] == '-';
    std::int64_t value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; i++) {
        if (value <= largest + 1)
            value = value * 10 + (text[i] - '0');
    }
    if (negative)
        value = -value;
    if (value > largest)
        return std::numeric_limits<std::int32_t>::max();
    if (value < smallest)
        return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(value);
}

// A line without its first byte (a block header's '<'). The cuts here build their views by hand:
// substr reports a bad position by throwing, and the library has no exceptions to throw.
std::string_view without_first(std::string_view line) noexcept
{
    line.remove_prefix(line.empty() ? 0 : 1);
    return line;
}

// A line that begins with white space (an empty line is its LF) ends a form or a block.
bool ends_section(std::string_view line) noexcept
{
    return std::isspace(static_cast<unsigned char>(line[0])) != 0;
}

// A position map carries its entry count in one hidden slot in front of the entries, so that a
// lookup can refuse an ID outside the map in O(1); the map pointer is to the first entry.
std::int32_t *allocate_map(std::int32_t entries) noexcept
{
    std::int32_t *base = memory::make_zeroed<std::int32_t>(static_cast<std::size_t>(entries) + 1);
    if (base == nullptr)
        return nullptr;
    base[0] = entries;
    return base + 1;
}

void release_map(std::int32_t *map) noexcept
{
    if (map != nullptr)
        memory::release(map - 1);
}

void release_definition(dk_dfDefinition &definition) noexcept
{
    for (dk_dfForm &form : std::span(definition.forms, static_cast<std::size_t>(definition.formCount))) {
        for (dk_dfBlockRef &ref : std::span(form.refs, static_cast<std::size_t>(form.refCount)))
            memory::release(ref.name);
        memory::release(form.refs);
        release_map(form.positionByTag);
    }
    memory::release(definition.forms);
    for (dk_dfBlock &block : std::span(definition.blocks, static_cast<std::size_t>(definition.blockCount))) {
        memory::release(block.name);
        memory::release(block.fields);
        release_map(block.positionByName);
    }
    memory::release(definition.blocks);
    memory::release(definition.name);
    definition = dk_dfDefinition{};
}

// How the reading part of a load ended.
enum class Outcome {
    read,
    intern_failed,  // the half-built definition stays in the list
    remove          // the definition is removed again
};

// The forms, up to the first line that begins with '<'.
Outcome read_forms(LineReader &reader, dk_dfDefinition &definition, dk_sdDictionary &dictionary) noexcept
{
    Name name;
    while (reader.line()[0] != '<') {
        Tokens header(reader.line());
        std::optional<std::string_view> column;
        if (!header.next(",") || !(column = header.next("]")))
            return Outcome::remove;
        if (!dictionary::trim_all(*column, name))
            return Outcome::remove;
        std::int32_t id;
        if (!dk_sdGetSafeID(&dictionary, name.data(), &id))
            return Outcome::intern_failed;
        for (const dk_dfForm &form : std::span(definition.forms, static_cast<std::size_t>(definition.formCount))) {
            if (form.id == id)
                return Outcome::remove;
        }
        dk_dfForm *form = memory::append_zeroed(definition.forms, definition.formCount);
        if (form == nullptr)
            return Outcome::remove;
        form->id = id;
        for (;;) {
            if (!reader.advance())
                return Outcome::remove;
            if (ends_section(reader.line()))
                break;
            Tokens tokens(reader.line());
            const std::optional<std::string_view> blockName = tokens.next(",");
            std::optional<std::string_view> occurrence;
            if (!blockName || !tokens.next(",") || !(occurrence = tokens.next(",")))
                return Outcome::remove;
            dk_dfBlockRef *ref = memory::append_zeroed(form->refs, form->refCount);
            if (ref == nullptr)
                return Outcome::remove;
            ref->occurrence = number(*occurrence);
            ref->name = memory::duplicate(*blockName);
            if (ref->name == nullptr || ref->occurrence == 0)
                return Outcome::remove;
        }
        if (!reader.advance())
            return Outcome::remove;
    }
    return Outcome::read;
}

// The blocks, from the current line (its first byte, the '<', is skipped) to the end of the text;
// each block's name and each field's type column go to `details` as they are read.
Outcome read_blocks(LineReader &reader, dk_dfDefinition &definition, dk_sdDictionary &dictionary,
                    const TextDetails *details) noexcept
{
    Name name;
    Name type;
    for (;;) {
        Tokens header(without_first(reader.line()));
        const std::optional<std::string_view> blockName = header.next(",");
        std::optional<std::string_view> tag;
        if (!blockName || !(tag = header.next(">")))
            return Outcome::remove;
        dk_dfBlock *block = memory::append_zeroed(definition.blocks, definition.blockCount);
        if (block == nullptr)
            return Outcome::remove;
        block->name = memory::duplicate(*blockName);
        if (block->name == nullptr || !dictionary::trim_all(*tag, name))
            return Outcome::remove;
        const std::int32_t blockIndex = definition.blockCount - 1;
        if (details != nullptr && details->block != nullptr && !details->block(details->user, blockIndex, *blockName))
            return Outcome::remove;
        if (!dk_sdGetSafeID(&dictionary, name.data(), &block->tagId))
            return Outcome::intern_failed;
        bool ended;
        for (;;) {
            ended = !reader.advance();
            if (ended || ends_section(reader.line()))
                break;
            Tokens tokens(reader.line());
            const std::optional<std::string_view> fieldName = tokens.next(",");
            std::optional<std::string_view> width;
            if (!fieldName || !(width = tokens.next(",")))
                return Outcome::remove;
            if (!dictionary::trim_all(*fieldName, name))
                return Outcome::remove;
            std::int32_t nameId;
            if (!dk_sdGetSafeID(&dictionary, name.data(), &nameId))
                return Outcome::intern_failed;
            dk_dfField *field = memory::append_zeroed(block->fields, block->fieldCount);
            if (field == nullptr)
                return Outcome::remove;
            field->nameId = nameId;
            field->width = number(*width);
            if (field->width <= 0 || field->width > max_width)
                return Outcome::remove;
            if (details != nullptr && details->field != nullptr) {
                // The third column, when the line has one; the records keep nothing of it.
                const std::optional<std::string_view> typeColumn = tokens.next(",");
                if (!dictionary::trim_all(typeColumn.value_or(std::string_view{}), type) ||
                    !details->field(details->user, blockIndex, block->fieldCount - 1, std::string_view{type.data()}))
                    return Outcome::remove;
            }
        }
        if (reader.malformed())
            return Outcome::remove;
        if (ended || !reader.advance())
            return reader.malformed() ? Outcome::remove : Outcome::read;
    }
}

// What a read definition still needs: field offsets and record lengths, each reference linked
// to its block by name (the names are released then), and the position maps.
bool complete(dk_dfDefinition &definition) noexcept
{
    const std::span forms(definition.forms, static_cast<std::size_t>(definition.formCount));
    const std::span blocks(definition.blocks, static_cast<std::size_t>(definition.blockCount));
    for (dk_dfBlock &block : blocks) {
        std::int32_t offset = 0;
        for (dk_dfField &field : std::span(block.fields, static_cast<std::size_t>(block.fieldCount))) {
            field.offset = offset;
            offset += field.width;
            if (offset > max_record_length)
                return false;
        }
        block.recordLength = offset;
    }
    for (dk_dfForm &form : forms) {
        for (dk_dfBlockRef &ref : std::span(form.refs, static_cast<std::size_t>(form.refCount))) {
            std::int32_t k = 0;
            while (k < definition.blockCount && dk_sdStrCmp(definition.blocks[k].name, ref.name) != 0)
                k++;
            if (k == definition.blockCount)
                return false;
            ref.blockIndex = k;
        }
    }
    for (dk_dfForm &form : forms) {
        for (dk_dfBlockRef &ref : std::span(form.refs, static_cast<std::size_t>(form.refCount))) {
            memory::release(ref.name);
            ref.name = nullptr;
        }
    }
    for (dk_dfBlock &block : blocks) {
        memory::release(block.name);
        block.name = nullptr;
    }
    for (dk_dfForm &form : forms) {
        const std::span refs(form.refs, static_cast<std::size_t>(form.refCount));
        std::int32_t largest = 0;
        for (const dk_dfBlockRef &ref : refs)
            largest = std::max(largest, definition.blocks[ref.blockIndex].tagId);
        form.positionByTag = allocate_map(largest + 1);
        if (form.positionByTag == nullptr)
            return false;
        for (std::int32_t j = 0; j < form.refCount; j++)
            form.positionByTag[definition.blocks[form.refs[j].blockIndex].tagId] = j;
    }
    for (dk_dfBlock &block : blocks) {
        const std::span fields(block.fields, static_cast<std::size_t>(block.fieldCount));
        std::int32_t largest = 0;
        for (const dk_dfField &field : fields)
            largest = std::max(largest, field.nameId);
        block.positionByName = allocate_map(largest + 1);
        if (block.positionByName == nullptr)
            return false;
        for (std::int32_t j = 0; j < block.fieldCount; j++)
            block.positionByName[block.fields[j].nameId] = j;
    }
    return true;
}

// The definition being loaded, at `index` of its list: a failure path removes it again, unless
// `keep()` was called (on success, and where the half-built definition is meant to stay).
class PendingDefinition {
public:
    PendingDefinition(dk_dfDefinitionList &list, std::int32_t index) noexcept : list_(list), index_(index) {}
    PendingDefinition(const PendingDefinition &) = delete;
    PendingDefinition &operator=(const PendingDefinition &) = delete;
    ~PendingDefinition()
    {
        if (!kept_)
            dk_dfDestroyDefinition(&list_, index_);
    }
    void keep() noexcept { kept_ = true; }

private:
    dk_dfDefinitionList &list_;
    std::int32_t index_;
    bool kept_ = false;
};

}  // namespace

bool load_definition(dk_dfDefinitionList &list, dk_sdDictionary &dictionary, std::string_view text,
                     const TextDetails *details) noexcept
{
    LineReader reader(text);
    if (!reader.advance())
        return false;
    // A version line too short to hold a name gives an empty one.
    const std::string_view versionLine = reader.line();
    Name name;
    if (!dictionary::trim_all(versionLine.size() >= version_skip ? std::string_view{versionLine.data() + version_skip, versionLine.size() - version_skip} : std::string_view{},
                              name))
        return false;
    for (const dk_dfDefinition &loaded : std::span(list.items, static_cast<std::size_t>(list.count))) {
        if (loaded.name != nullptr && dk_sdStrCmp(loaded.name, name.data()) == 0)
            return false;
    }
    memory::Owned<char> nameCopy(memory::duplicate(name.data()));
    if (!nameCopy)
        return false;
    const std::int32_t index = list.count;
    dk_dfDefinition *definition = memory::append_zeroed(list.items, list.count);
    if (definition == nullptr)
        return false;
    definition->name = nameCopy.take();
    PendingDefinition pending(list, index);

    if (!reader.advance() || !reader.advance())
        return false;
    Outcome outcome = read_forms(reader, *definition, dictionary);
    if (outcome == Outcome::read)
        outcome = read_blocks(reader, *definition, dictionary, details);
    // A name that could not be interned leaves the half-built definition in the list, where
    // dk_dfDestroyDefinition takes it back; every other failure removes it at once.
    if (outcome == Outcome::intern_failed) {
        pending.keep();
        return false;
    }
    if (outcome == Outcome::remove || !complete(*definition))
        return false;
    pending.keep();
    return true;
}

}  // namespace navo::definitions

extern "C" {

NAVO_API int32_t NAVO_CALL dk_dfInit(dk_dfDefinitionList **out) noexcept
{
    if (out == nullptr)
        return 0;
    navo::layout_changed();
    *out = navo::memory::make_zeroed<dk_dfDefinitionList>();
    return *out != nullptr;
}

NAVO_API int32_t NAVO_CALL dk_dfDestroyDefinition(dk_dfDefinitionList *list, int32_t index) noexcept
{
    if (list == nullptr || list->count == 0)
        return 0;
    // An index outside the list is refused (outside the contract).
    if (index < 0 || index >= list->count)
        return 0;
    navo::layout_changed();
    navo::definitions::release_definition(list->items[index]);
    if (list->count == 1) {
        navo::memory::release(list->items);
        list->items = nullptr;
        list->count = 0;
        return 1;
    }
    std::memmove(&list->items[index], &list->items[index + 1],
                 static_cast<size_t>(list->count - index - 1) * sizeof(dk_dfDefinition));
    list->count--;
    // A shrink that fails keeps the larger block; the count is what holds.
    (void)navo::memory::resize_array(list->items, static_cast<size_t>(list->count));
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_dfDestroy(dk_dfDefinitionList **pointer) noexcept
{
    if (pointer == nullptr || *pointer == nullptr)
        return 1;
    navo::layout_changed();
    dk_dfDefinitionList *list = *pointer;
    while (list->count > 0)
        dk_dfDestroyDefinition(list, 0);
    navo::memory::release(list);
    *pointer = nullptr;
    return 1;
}

NAVO_API int32_t NAVO_CALL dk_dfLoadDefinition(dk_dfDefinitionList *list, dk_sdDictionary *dictionary,
                                               const char *text) noexcept
{
    if (list == nullptr || dictionary == nullptr || text == nullptr)
        return 0;
    navo::layout_changed();
    return navo::definitions::load_definition(*list, *dictionary, text, nullptr) ? 1 : 0;
}

}  // extern "C"

// locate.cpp - the fault locator: the loader's walk over tags, texts and lengths, with the place
// of each element remembered instead of its contents.
#include "locate.hpp"

#include <cstdio>
#include <cstring>
#include <vector>

#include <fmt/format.h>

#include "common.hpp"

namespace navo_cli {
namespace {

constexpr int kEnd = -1;
constexpr size_t kTagCapacity = 199; // the loader's tag buffer holds 199 characters
constexpr size_t kMaxLines = 4096;   // line lengths kept per text

struct Stop {}; // thrown when the reader passes the line asked for

bool equalsFolded(std::string_view a, std::string_view b)
{
    if (a.size() != b.size())
        return false;
    for (size_t i = 0; i < a.size(); i++) {
        auto x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x >= 'a' && x <= 'z')
            x = static_cast<unsigned char>(x - 32);
        if (y >= 'a' && y <= 'z')
            y = static_cast<unsigned char>(y - 32);
        if (x != y)
            return false;
    }
    return true;
}

// Significant characters of the file as the library's text-mode reader sees them: CR LF is a line
// end, TAB and LF are dropped, the byte 26 ends the input.
class Reader {
public:
    Reader(const std::string &path, int stopLine) : stopLine_(stopLine)
    {
        file_ = std::fopen(path.c_str(), "rb");
        if (file_ == nullptr)
            throw Failure(kExitUsage, fmt::format("{}: cannot be read", path));
    }
    ~Reader() { std::fclose(file_); }
    Reader(const Reader &) = delete;
    Reader &operator=(const Reader &) = delete;

    int line() const { return line_; }
    long long offset() const { return offset_; }
    std::vector<int> *lineLengths = nullptr; // when set, lengths of the pieces between line feeds

    int raw()
    {
        if (pending_ != kEnd - 1) {
            int c = pending_;
            pending_ = kEnd - 1;
            return c;
        }
        int c = std::getc(file_);
        return c == 26 ? kEnd : c;
    }
    int next()
    {
        for (;;) {
            int c = raw();
            if (c == kEnd)
                return kEnd;
            offset_++;
            if (c == '\r') {
                int n = raw();
                if (n == '\n')
                    c = '\n', offset_++;
                else
                    pending_ = n;
            }
            if (c == '\n') {
                line_++;
                if (line_ > stopLine_)
                    throw Stop{};
                if (lineLengths != nullptr && lineLengths->size() < kMaxLines)
                    lineLengths->push_back(0);
                continue;
            }
            if (c == '\t')
                continue;
            if (lineLengths != nullptr && !lineLengths->empty())
                lineLengths->back()++;
            return c;
        }
    }
    // Fixed read of count significant characters; false at the end of input.
    bool fixed(size_t count, std::string &out)
    {
        out.clear();
        while (out.size() < count) {
            int c = next();
            if (c == kEnd)
                return false;
            out += static_cast<char>(c);
        }
        return true;
    }
    // Tag read: blanks and CR in front, then '<' through '>' or a full buffer.
    bool tag(std::string &out)
    {
        out.clear();
        int c;
        do
            c = next();
        while (c == ' ' || c == '\r');
        if (c != '<')
            return false;
        out += '<';
        while (out.size() < kTagCapacity) {
            c = next();
            if (c == kEnd)
                return false;
            out += static_cast<char>(c);
            if (c == '>')
                break;
        }
        return true;
    }
    // Text read: significant characters up to '<', then the closing tag through '>'. Returns the
    // length, or -1 at the end of input; closing receives the closing tag's name.
    long long text(std::vector<int> &lines, std::string &closing)
    {
        lines.assign(1, 0);
        lineLengths = &lines;
        long long length = 0;
        int c;
        while ((c = next()) != '<') {
            if (c == kEnd) {
                lineLengths = nullptr;
                return -1;
            }
            length++;
        }
        lineLengths = nullptr;
        lines.back()--; // the '<' that ended the text
        closing.clear();
        while ((c = next()) != '>') {
            if (c == kEnd)
                return -1;
            if (closing.size() < kTagCapacity)
                closing += static_cast<char>(c);
        }
        if (!closing.empty() && closing[0] == '/')
            closing.erase(0, 1);
        return length;
    }

private:
    std::FILE *file_;
    int line_ = 1;
    int stopLine_;
    long long offset_ = 0;
    int pending_ = kEnd - 1;
};

struct Fault {
    int cause;
    std::string area;
    std::string detail;
};

// Which line of a fixed-width text has the wrong length, when the text has one line per width.
void pinLine(Location &loc, const std::vector<int> &lines, const int *widths, size_t count, const char *label,
             const std::vector<FieldDef> *fields)
{
    // Lines of a text as written: a first, empty piece behind the opening tag, one piece per line.
    std::vector<int> pieces(lines.begin(), lines.end());
    while (!pieces.empty() && pieces.front() == 0)
        pieces.erase(pieces.begin());
    while (!pieces.empty() && pieces.back() == 0)
        pieces.pop_back();
    if (pieces.size() != count)
        return;
    for (size_t i = 0; i < count; i++) {
        if (pieces[i] != widths[i]) {
            loc.field = fields != nullptr ? (*fields)[i].name : fmt::format("{}{}", label, i + 1);
            loc.fieldExpected = widths[i];
            loc.fieldFound = pieces[i];
            return;
        }
    }
}

} // namespace

Location locateFault(const std::string &path, int stopLine)
{
    Location loc;
    Reader in(path, stopLine <= 0 ? 1 << 30 : stopLine);
    std::string buffer, tag, closing;
    std::vector<int> lines;
    const Schema *schema = nullptr;
    auto fail = [&](int cause, const std::string &area, const std::string &detail) {
        loc.fault = true;
        loc.cause = cause;
        loc.area = area;
        loc.detail = detail;
        throw Fault{cause, area, detail};
    };
    try {
        try {
            // Prolog and file header.
            loc.area = "prolog";
            if (!in.fixed(49, buffer))
                fail(3, "prolog", "the file ends inside the prolog");
            if (buffer.compare(0, 21, "<!DOCTYPE NAVO PUBLIC") != 0)
                fail(1, "prolog", "the first line is not the NAVO document type");
            if (!in.fixed(26, buffer))
                fail(3, "prolog", "the file ends inside the prolog");
            schema = &schemaFor(versionOfPrologLine(buffer));
            std::string one;
            if (buffer.back() != '>')
                do
                    if (!in.fixed(1, one))
                        fail(3, "prolog", "the file ends inside the prolog");
                while (one != ">");
            if (!in.fixed(38, buffer))
                fail(3, "prolog", "the file ends inside the prolog");
            if (buffer.back() != '>')
                do
                    if (!in.fixed(1, one))
                        fail(3, "prolog", "the file ends inside the prolog");
                while (one != ">");
            loc.area = "file header";
            if (!in.fixed(6, buffer))
                fail(3, "file header", "the file ends before <NAVO>");
            if (buffer != "<NAVO>")
                fail(4, "file header", "<NAVO> expected behind the prolog");
            if (!in.tag(tag) || tag != "<naglowek.NAVO>")
                fail(4, "file header", "<naglowek.NAVO> expected");
            long long length = in.text(lines, closing);
            if (length < 0)
                fail(3, "file header", "the file ends inside the file header");
            if (length != 139) {
                loc.expected = 139;
                loc.found = static_cast<int>(length);
                pinLine(loc, lines, kFileHeaderWidths, 5, "line", nullptr);
                fail(3, "file header", "the file header's lines do not add up to 139 characters");
            }
            loc.headerEnd = in.offset();

            // Sections.
            for (;;) {
                loc.area = "between sections";
                loc.form.clear();
                loc.block.clear();
                loc.record = -1;
                loc.field.clear();
                // The loader's section scan: '<', six characters, "TOB" or "stopka" go on.
                int c;
                bool section = false;
                for (;;) {
                    while ((c = in.next()) != '<')
                        if (c == kEnd)
                            fail(4, "between sections", "the file ends without a file footer");
                    if (!in.fixed(6, buffer))
                        fail(4, "between sections", "the file ends without a file footer");
                    bool tob = buffer.compare(0, 3, "TOB") == 0;
                    if (!tob && buffer.compare(0, 6, "stopka") != 0)
                        continue;
                    tag = "<" + buffer;
                    if (tag.back() != '>')
                        while ((c = in.next()) != '>') {
                            if (c == kEnd)
                                fail(4, "between sections", "the file ends without a file footer");
                            if (tag.size() < kTagCapacity)
                                tag += static_cast<char>(c);
                        }
                    if (tag.back() != '>')
                        tag += '>';
                    if (tob && tag.find(".DP>") != std::string::npos) {
                        section = true;
                        break;
                    }
                    if (!tob && tag.find(".NAVO>") != std::string::npos)
                        break;
                }
                if (!section)
                    break;

                loc.document++;
                loc.form = tag.substr(1, tag.find(".DP>") - 1);
                loc.area = "section";
                const FormDef *form = loc.form.size() <= 19 ? schema->form(loc.form) : nullptr;
                if (form == nullptr)
                    fail(8, "section", fmt::format("the form is not in the definitions of version {}", schema->version));
                loc.area = "document header";
                do
                    c = in.next();
                while (c == ' ' || c == '\r');
                buffer.assign(1, static_cast<char>(c));
                std::string rest;
                if (c == kEnd || !in.fixed(12, rest))
                    fail(3, "document header", "the file ends inside the section");
                if (buffer + rest != "<naglowek.DP>")
                    fail(4, "document header", "<naglowek.DP> expected");
                length = in.text(lines, closing);
                if (length < 0)
                    fail(3, "document header", "the file ends inside the document header");
                if (length != 245) {
                    loc.expected = 245;
                    loc.found = static_cast<int>(length);
                    pinLine(loc, lines, kDocHeaderWidths, 14, "line", nullptr);
                    fail(3, "document header", "the document header's lines do not add up to 245 characters");
                }
                loc.area = "body";
                if (!in.tag(tag))
                    fail(4, "body", fmt::format("<{}> expected", loc.form));
                int last = -1;
                for (;;) {
                    if (!in.tag(tag))
                        fail(4, "body", "a block or the body's closing tag expected");
                    if (tag == "</" + loc.form + ">")
                        break;
                    size_t close = tag.find('>');
                    if (close == std::string::npos)
                        fail(4, "body", "a tag of 200 characters or more");
                    std::string name = tag.substr(1, close - 1);
                    int position = -1;
                    for (size_t i = 0; i < form->blocks.size(); i++)
                        if (equalsFolded(form->blocks[i].tag, name))
                            position = static_cast<int>(i);
                    const BlockDef *block = position >= 0 ? &form->blocks[static_cast<size_t>(position)] : nullptr;
                    int record = block != nullptr && block->repeating && position == last ? loc.record + 1 : 0;
                    loc.block = block != nullptr ? block->tag : name;
                    loc.record = block != nullptr && block->repeating ? record : -1;
                    loc.field.clear();
                    length = in.text(lines, closing);
                    if (length < 0)
                        fail(3, "body", "the file ends inside a block");
                    if (!equalsFolded(closing, name))
                        fail(3, "body", "the block's closing tag has another name");
                    if (block == nullptr)
                        fail(6, "body", fmt::format("the form {} has no block of this tag", loc.form));
                    if (length != block->recordLength) {
                        loc.expected = block->recordLength;
                        loc.found = static_cast<int>(length);
                        std::vector<int> widths;
                        for (const auto &f : block->fields)
                            widths.push_back(f.width);
                        pinLine(loc, lines, widths.data(), widths.size(), "field", &block->fields);
                        fail(7, "body", "the block's text differs from its record length");
                    }
                    int step = position - last;
                    bool ordered = last == -1 ? position == 0 : (step == 1 || (block->repeating && step == 0));
                    if (!ordered) {
                        std::string expected =
                            last == -1 ? form->blocks[0].tag
                                       : (static_cast<size_t>(last + 1) < form->blocks.size()
                                              ? form->blocks[static_cast<size_t>(last + 1)].tag
                                              : std::string("the body's end"));
                        fail(6, "body", fmt::format("block out of order: {} expected here", expected));
                    }
                    last = position;
                }
                loc.area = "document footer";
                loc.block.clear();
                loc.record = -1;
                if (!in.tag(tag))
                    fail(4, "document footer", "<stopka.DP> expected");
                int notes = 0;
                for (;;) {
                    if (!in.tag(tag))
                        fail(4, "document footer", "a note or </stopka.DP> expected");
                    if (tag == "</stopka.DP>")
                        break;
                    if (tag == "<BLAD>" || tag.compare(0, 5, "<OCR.") == 0) {
                        loc.record = notes++;
                        loc.block = tag == "<BLAD>" ? "BLAD" : "OCR";
                        if (in.text(lines, closing) < 0)
                            fail(3, "document footer", "the file ends inside a note");
                    }
                }
                loc.block.clear();
                loc.record = -1;
                if (!in.tag(tag) || tag != "</" + loc.form + ".DP>")
                    fail(4, "section end", fmt::format("</{}.DP> expected", loc.form));
            }

            // File footer.
            loc.area = "file footer";
            loc.document = 0;
            loc.form.clear();
            int notes = 0;
            for (;;) {
                if (!in.tag(tag))
                    fail(4, "file footer", "a note or </stopka.NAVO> expected");
                if (tag == "</stopka.NAVO>")
                    break;
                if (tag != "<BLAD>")
                    fail(4, "file footer", "only <BLAD> notes may stand in the file footer");
                loc.record = notes++;
                loc.block = "BLAD";
                if (in.text(lines, closing) < 0)
                    fail(3, "file footer", "the file ends inside a note");
            }
            loc.area = "end";
            loc.block.clear();
            loc.record = -1;
        } catch (const Stop &) {
            // The state at the line asked for stays in loc.
        }
    } catch (const Fault &) {
    }
    loc.line = in.line();
    loc.offset = in.offset();
    return loc;
}

long long findNextSection(const std::string &path, long long offset, int &line)
{
    std::FILE *file = std::fopen(path.c_str(), "rb");
    if (file == nullptr)
        return -1;
    // Lines up to offset, then the search for "<TOB...DP>" or "<stopka...NAVO>".
    line = 1;
    long long at = 0;
    int c;
    while (at < offset && (c = std::getc(file)) != EOF) {
        at++;
        if (c == '\n')
            line++;
    }
    long long found = -1;
    std::string tag;
    long long tagStart = 0;
    int tagLine = 0;
    bool inTag = false;
    while ((c = std::getc(file)) != EOF) {
        if (c == '<') {
            inTag = true;
            tag = "<";
            tagStart = at;
            tagLine = line;
        } else if (inTag && c != '\t' && c != '\n' && c != '\r') {
            tag += static_cast<char>(c);
            if (c == '>') {
                inTag = false;
                if ((tag.compare(0, 4, "<TOB") == 0 && tag.find(".DP>") != std::string::npos) ||
                    (tag.compare(0, 7, "<stopka") == 0 && tag.find(".NAVO>") != std::string::npos)) {
                    found = tagStart;
                    line = tagLine;
                    break;
                }
            } else if (tag.size() > kTagCapacity) {
                inTag = false;
            }
        }
        at++;
        if (c == '\n')
            line++;
    }
    std::fclose(file);
    return found;
}

} // namespace navo_cli

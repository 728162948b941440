// validate.cpp - `navo validate`: the library's verdict on each file, with the place of the fault.
#include <filesystem>

#include <fmt/format.h>

#include "commands.hpp"
#include "common.hpp"
#include "locate.hpp"

namespace navo_cli {
namespace {

struct Verdict {
    int code = 0;
    int line = 0;
};

Verdict bareLoad(const std::string &path)
{
    dk_Context *ctx = nullptr;
    if (!dk_Init(&ctx))
        throw Failure(kExitUsage, "out of memory");
    dk_UstawCallBack(nullptr);
    int32_t result;
    {
        Progress progress(libraryLines);
        result = dk_LoadNAVO(ctx, path.c_str());
        if (result == 1)
            progress.finish();
    }
    Verdict verdict{result == 1 ? 0 : dk_GetNAVOError(), dk_GetNAVOLine()};
    releaseContext(ctx);
    return verdict;
}

struct FaultReport {
    Verdict verdict;
    Location where;
};

// The file as the library would see it with the sections in front of `from` left out: the prolog
// and file header, a line end, and everything from `from` on.
void writeResumed(const std::string &source, long long headerEnd, long long from, const std::string &target)
{
    std::FILE *in = std::fopen(source.c_str(), "rb");
    std::FILE *out = std::fopen(target.c_str(), "wb");
    if (in == nullptr || out == nullptr) {
        if (in != nullptr)
            std::fclose(in);
        if (out != nullptr)
            std::fclose(out);
        throw Failure(kExitUsage, "cannot write a temporary file");
    }
    std::vector<char> buffer(1 << 16);
    long long copied = 0;
    while (copied < headerEnd) {
        size_t want = static_cast<size_t>(std::min<long long>(headerEnd - copied, static_cast<long long>(buffer.size())));
        size_t got = std::fread(buffer.data(), 1, want, in);
        if (got == 0)
            break;
        std::fwrite(buffer.data(), 1, got, out);
        copied += static_cast<long long>(got);
    }
    std::fputs("\r\n", out);
    seekTo(in, from);
    size_t got;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), in)) > 0)
        std::fwrite(buffer.data(), 1, got, out);
    std::fclose(in);
    bool ok = std::fclose(out) == 0;
    if (!ok)
        throw Failure(kExitUsage, "cannot write a temporary file");
}

int lineCountOf(const std::string &path, long long bytes)
{
    std::FILE *in = std::fopen(path.c_str(), "rb");
    int lines = 1;
    int c;
    for (long long i = 0; in != nullptr && i < bytes && (c = std::getc(in)) != EOF; i++)
        if (c == '\n')
            lines++;
    if (in != nullptr)
        std::fclose(in);
    return lines;
}

std::vector<FaultReport> check(const std::string &path, bool all)
{
    std::vector<FaultReport> faults;
    std::string current = path;
    std::string temp;
    // Mapping of the resumed file back to the original: lines and byte offsets at and behind the
    // splice move by these amounts, documents count on from docsBefore.
    int spliceLine = 1 << 30, lineShift = 0, docsBefore = 0;
    long long spliceOffset = 1LL << 62, offsetShift = 0, resumedAt = -1;
    struct Cleanup {
        std::string *temp;
        ~Cleanup()
        {
            if (!temp->empty())
                std::remove(temp->c_str());
        }
    } cleanup{&temp};
    for (;;) {
        Verdict verdict = bareLoad(current);
        if (verdict.code == 0)
            break;
        Location where = locateFault(current, verdict.line);
        if (verdict.line >= spliceLine)
            verdict.line += lineShift;
        if (where.line >= spliceLine)
            where.line += lineShift;
        if (where.offset >= spliceOffset)
            where.offset += offsetShift;
        if (where.document > 0 && current != path)
            where.document += docsBefore;
        faults.push_back({verdict, where});
        if (!all || verdict.code != 5 || where.headerEnd == 0)
            break;
        int nextLine = 0;
        long long next = findNextSection(path, where.offset, nextLine);
        if (next < 0 || next <= resumedAt)
            break; // no section behind this one, or no progress: stop rather than loop
        resumedAt = next;
        if (temp.empty())
            temp = createTempBeside((std::filesystem::temp_directory_path() / "navo-validate").string());
        writeResumed(path, where.headerEnd, next, temp);
        current = temp;
        spliceOffset = where.headerEnd + 2;
        offsetShift = next - spliceOffset;
        spliceLine = lineCountOf(path, where.headerEnd) + 1;
        lineShift = nextLine - spliceLine;
        docsBefore = where.document;
    }
    return faults;
}

std::string describeText(const std::string &path, const FaultReport &f)
{
    const Verdict &v = f.verdict;
    const Location &w = f.where;
    std::string out = fmt::format("{}: invalid at line {}: code {}, {} [{}]", path, v.line, v.code,
                                  englishMessage(v.code), libraryMessage(v.code));
    if (w.fault && w.cause != v.code)
        out += fmt::format("; cause {}, {} [{}]", w.cause, englishMessage(w.cause), libraryMessage(w.cause));
    std::vector<std::string> place;
    if (w.document > 0 && !w.form.empty())
        place.push_back(fmt::format("document {} ({})", w.document, w.form));
    if (!w.area.empty())
        place.push_back(w.area);
    if (!w.block.empty())
        place.push_back(w.record >= 0 ? fmt::format("block {} record {}", w.block, w.record)
                                      : fmt::format("block {}", w.block));
    if (!w.field.empty())
        place.push_back(fmt::format("field {}", w.field));
    if (!place.empty())
        out += "; at " + fmt::format("{}", fmt::join(place, ", "));
    if (w.expected >= 0)
        out += fmt::format("; expected {} characters, found {}", w.expected, w.found);
    if (w.fieldExpected >= 0)
        out += fmt::format(" ({} {} characters, found {})", w.field, w.fieldExpected, w.fieldFound);
    if (w.fault && !w.detail.empty())
        out += "; " + w.detail;
    return out;
}

std::string describeJson(const FaultReport &f)
{
    const Verdict &v = f.verdict;
    const Location &w = f.where;
    std::string out = fmt::format(R"({{"code":{},"message":{},"message_en":{},"line":{})", v.code,
                                  jsonString(libraryMessage(v.code)), jsonString(englishMessage(v.code)), v.line);
    if (w.fault)
        out += fmt::format(R"(,"cause":{},"cause_message":{},"cause_message_en":{},"detail":{})", w.cause,
                           jsonString(libraryMessage(w.cause)), jsonString(englishMessage(w.cause)),
                           jsonString(w.detail));
    if (!w.area.empty())
        out += fmt::format(R"(,"area":{})", jsonString(w.area));
    if (w.document > 0 && !w.form.empty())
        out += fmt::format(R"(,"document":{},"form":{})", w.document, jsonString(toUtf8(w.form, Encoding::Iso88592)));
    if (!w.block.empty())
        out += fmt::format(R"(,"block":{})", jsonString(toUtf8(w.block, Encoding::Iso88592)));
    if (w.record >= 0)
        out += fmt::format(R"(,"record":{})", w.record);
    if (!w.field.empty())
        out += fmt::format(R"(,"field":{})", jsonString(w.field));
    if (w.expected >= 0)
        out += fmt::format(R"(,"expected":{},"found":{})", w.expected, w.found);
    if (w.fieldExpected >= 0)
        out += fmt::format(R"(,"field_expected":{},"field_found":{})", w.fieldExpected, w.fieldFound);
    return out + "}";
}

int validateOne(const std::string &path, const ValidateOptions &options)
{
    bool json = options.format == "jsonl";
    std::vector<FaultReport> faults;
    try {
        requireRegularFile(path);
        faults = check(path, options.all);
    } catch (const Failure &failure) {
        if (json)
            fmt::print("{{\"file\":{},\"valid\":false,\"error\":{}}}\n", jsonString(path), jsonString(failure.what()));
        else
            fmt::print("{}: error: {}\n", path, failure.what());
        std::fflush(stdout);
        return failure.exitCode;
    }
    // A file the library cannot open is an I/O error, not an invalid file.
    int exit = faults.empty() ? kExitOk : faults.front().verdict.code == 2 ? kExitUsage : kExitInvalid;
    if (json) {
        std::string out = fmt::format("{{\"file\":{},\"valid\":{}", jsonString(path), faults.empty());
        if (!faults.empty()) {
            out += ",\"faults\":[";
            for (size_t i = 0; i < faults.size(); i++)
                out += (i ? "," : "") + describeJson(faults[i]);
            out += "]";
        }
        fmt::print("{}}}\n", out);
    } else if (faults.empty()) {
        fmt::print("{}: valid\n", path);
    } else {
        for (const auto &f : faults)
            fmt::print("{}\n", describeText(path, f));
    }
    std::fflush(stdout);
    return exit;
}

} // namespace

int runValidate(const ValidateOptions &options)
{
    if (options.format != "text" && options.format != "jsonl")
        throw Failure(kExitUsage, "--format must be text or jsonl");
    if (options.jobs > 1 && options.files.size() > 1)
        globalOptions.noProgress = true; // one terminal line cannot carry several bars
    return runInProcesses(options.files.size(), options.jobs,
                          [&](size_t i) { return validateOne(options.files[i], options); });
}

} // namespace navo_cli

// options.cpp - the command line through CLI11: commands, options, and validators that make typed values.
#include "options.hpp"

#include <charconv>
#include <cstdint>
#include <sstream>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace navo_cli {
namespace {

constexpr const char *kCommands = "validate, show, convert, build, schema, diff";

constexpr const char *kFooter =
    "Numbers: documents count from 1, in the order of their file; records of a block, notes and lines\n"
    "count from 0, as the library and the JSON keys count them.\n"
    "Exit codes:\n"
    "  0  success: the files are valid, equal, or the output was written\n"
    "  1  an input is invalid (a fault, a finding, a refused value), or the files differ\n"
    "  2  usage or I/O error (missing file, unreadable input, unwritable output)\n";

// A validator that turns the option's text into the text of its typed value, or refuses it with
// `refusal`, which follows the option's name: "navo: --doc: a document number from 1".
CLI::Validator transforming(std::function<bool(std::string &)> make, std::string refusal)
{
    return CLI::Validator(
        [make = std::move(make), refusal = std::move(refusal)](std::string &text) -> std::string {
            return make(text) ? std::string() : refusal;
        },
        "");
}

CLI::Validator number_in(int least, int most, std::string refusal)
{
    return transforming(
        [least, most](std::string &text) {
            int value = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            return error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
        },
        std::move(refusal));
}

// One of `words`, each standing for the number that its value's type takes.
CLI::Validator one_of(std::vector<std::pair<std::string, int>> words, std::string refusal)
{
    return transforming(
        [words = std::move(words)](std::string &text) {
            for (const auto &[word, value] : words) {
                if (text == word) {
                    text = std::to_string(value);
                    return true;
                }
            }
            return false;
        },
        std::move(refusal));
}

// The core names the code pages.
CLI::Validator encoding_name()
{
    return transforming(
        [](std::string &text) {
            const std::optional<navo::encoding> found = navo::encoding_named(text);
            if (found)
                text = std::to_string(static_cast<int>(*found));
            return found.has_value();
        },
        "an encoding: iso8859-2 (the format's own) or cp1250");
}

// A definition version the core has.
CLI::Validator definition_version()
{
    return transforming(
        [](std::string &text) {
            std::error_code ec;
            return navo::schema(text, ec) != nullptr;
        },
        "a definition version: 1.3 or 1.2");
}

CLI::Option *add_encoding(CLI::App *command, navo::encoding &encoding, const char *what)
{
    return command->add_option("--encoding", encoding, what)->transform(encoding_name())->type_name("ENCODING");
}

void add_progress(CLI::App *command, Invocation &invocation)
{
    command->add_flag("--no-progress", invocation.noProgress, "Never show the progress bar");
}

void add_show_values(CLI::App *command, Invocation &invocation, const char *what)
{
    command->add_flag("--show-values", invocation.showValues, what);
}

bool is_command(std::string_view word)
{
    for (const char *name : {"validate", "show", "convert", "build", "schema", "diff"}) {
        if (word == name)
            return true;
    }
    return false;
}

Invocation answer(int exit, std::string out, std::string err)
{
    Invocation invocation;
    invocation.exit = exit;
    invocation.out = std::move(out);
    invocation.err = std::move(err);
    return invocation;
}

}  // namespace

Invocation parse_command_line(int argc, const char *const *argv)
{
    // The first word that is no option names the command.
    for (int i = 1; i < argc; i++) {
        const std::string_view word = argv[i];
        if (word.empty() || word[0] == '-')
            continue;
        if (!is_command(word))
            return answer(2, "", fmt::format("navo: unknown command '{}' ({}; see navo --help)\n", word, kCommands));
        break;
    }

    Invocation invocation;
    CLI::App app{"navo - validate, inspect, convert and build NAVO files", "navo"};
    app.footer(kFooter);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Subcommands", "Commands");
    app.set_help_all_flag("--help-all", "Help for every command");
    bool version = false;
    app.add_flag("--version", version, "Print the version");

    const auto documentNumber = number_in(1, INT32_MAX, "a document number from 1");

    ValidateOptions &validate = invocation.validate;
    auto *v = app.add_subcommand("validate", "Load each file and report 'valid', or each fault (and finding)");
    v->add_option("files", validate.files, "NAVO files")->required();
    v->add_flag("--all", validate.all, "Go on behind a faulty section and report every faulty section");
    v->add_flag("--content", validate.content, "Check every field's value by the rule of its type, after the structure");
    v->add_option("--rules", validate.rules, "Rules of one's own for --content (implies it)")->type_name("FILE");
    v->add_option("--format", validate.format, "Output: text or jsonl (one object a file)")
        ->transform(one_of({{"text", 0}, {"jsonl", 1}}, "text or jsonl"))
        ->type_name("FORMAT");
    v->add_option("-j,--jobs", validate.jobs, "Check the files in N processes")
        ->transform(number_in(1, 256, "a number of processes from 1 to 256"))
        ->type_name("N");
    add_encoding(v, validate.encoding, "The files' encoding: iso8859-2 (the format's own) or cp1250");
    add_progress(v, invocation);
    add_show_values(v, invocation, "Show the values that fail their rule (personal data)");
    v->footer(kFooter);

    ShowOptions &show = invocation.show;
    auto *s = app.add_subcommand("show", "A readable view of a file: header, documents, blocks, records, notes");
    s->add_option("file", show.file, "NAVO file")->required();
    s->add_option("--form", show.form, "Only documents of this form");
    s->add_option("--doc", show.doc, "Only the document of this number (from 1)")
        ->transform(documentNumber)
        ->type_name("N");
    s->add_option("--block", show.block, "Only this block of each document");
    add_encoding(s, show.encoding, "The file's encoding: iso8859-2 (the format's own) or cp1250");
    add_progress(s, invocation);
    s->footer(kFooter);

    ConvertOptions &convert = invocation.convert;
    int to = 0;
    bool tables = false;
    auto *c = app.add_subcommand("convert", "Convert a file to JSON Lines, JSON or CSV, one document at a time");
    c->add_option("file", convert.file, "NAVO file")->required();
    c->add_option("--to", to, "Output format: jsonl, json or csv")
        ->required()
        ->transform(one_of({{"jsonl", static_cast<int>(navo::format::jsonl)},
                            {"json", static_cast<int>(navo::format::json)},
                            {"csv", static_cast<int>(navo::format::csv)}},
                           "jsonl, json or csv"))
        ->type_name("FORMAT");
    c->add_option("-o,--output", convert.output, "Output file (default: standard output)");
    add_encoding(c, convert.encoding, "The file's encoding: iso8859-2 (the format's own) or cp1250");
    c->add_option("--csv-layout", tables,
                  "long: one table of document,form,block,record,field,value; blocks: one table per block "
                  "(files STEM.FORM.BLOCK.csv and STEM.headers.csv)")
        ->transform(one_of({{"long", 0}, {"blocks", 1}}, "long or blocks"))
        ->type_name("LAYOUT");
    c->add_flag("--keep-padding", convert.keepPadding, "Keep the trailing blanks of fixed-width values");
    add_progress(c, invocation);
    c->footer(kFooter);

    BuildOptions &build = invocation.build;
    auto *b = app.add_subcommand("build", "Build a NAVO file from JSON Lines, JSON or a long CSV table");
    b->add_option("input", build.input, "IN.jsonl, IN.json or IN.csv")->required();
    b->add_option("-o,--output", build.output, "The NAVO file to write")->required();
    b->add_option("--from", build.from, "Input format, when its name does not tell: jsonl, json or csv")
        ->transform(one_of({{"jsonl", static_cast<int>(InputFormat::jsonl)},
                            {"json", static_cast<int>(InputFormat::json)},
                            {"csv", static_cast<int>(InputFormat::csv)}},
                           "jsonl, json or csv"))
        ->type_name("FORMAT");
    b->add_option("--version", build.version, "Definition version (default: the input's, else 1.3)")
        ->check(definition_version())
        ->type_name("VERSION");
    add_encoding(b, build.encoding, "The encoding to write: iso8859-2 (the format's own) or cp1250");
    b->add_flag("--truncate", build.truncate,
                "Cut values wider than their field and write '?' for characters the encoding lacks");
    b->add_flag("--content", build.content, "Refuse values that fail the rule of their type, before saving");
    b->add_option("--rules", build.rules, "Rules of one's own for --content (implies it)")->type_name("FILE");
    add_progress(b, invocation);
    add_show_values(b, invocation, "Show refused values in error messages (personal data)");
    b->footer(kFooter);

    SchemaOptions &schema = invocation.schema;
    auto *d = app.add_subcommand("schema", "Forms, blocks and fields of the embedded definitions");
    d->add_option("form", schema.form, "Only this form (with its fields)");
    d->add_option("block", schema.block, "Only this block of the form");
    d->add_option("--version", schema.version, "Definition version: 1.3 or 1.2")
        ->check(definition_version())
        ->type_name("VERSION");
    d->add_flag("--json", schema.json, "JSON output");
    d->footer(kFooter);

    DiffOptions &diff = invocation.diff;
    std::string key;
    auto *f = app.add_subcommand("diff", "Compare two files document by document");
    f->add_option("a", diff.a, "First NAVO file")->required();
    f->add_option("b", diff.b, "Second NAVO file")->required();
    f->add_option("--key", key, "Match documents by the value of BLOCK.FIELD (record 0) instead of file order")
        ->check(CLI::Validator(
            [](std::string &text) -> std::string {
                const std::size_t dot = text.find('.');
                const bool good = dot != std::string::npos && dot > 0 && dot + 1 < text.size() &&
                                  text.find('.', dot + 1) == std::string::npos;
                return good ? std::string() : "BLOCK.FIELD, as DIPL.Nip";
            },
            ""))
        ->type_name("BLOCK.FIELD");
    f->add_option("--format", diff.format, "Output: text or jsonl (one object a difference)")
        ->transform(one_of({{"text", 0}, {"jsonl", 1}}, "text or jsonl"))
        ->type_name("FORMAT");
    add_encoding(f, diff.encoding, "The files' encoding: iso8859-2 (the format's own) or cp1250");
    add_progress(f, invocation);
    add_show_values(f, invocation, "Show the values that differ (personal data)");
    f->footer(kFooter);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &e) {
        std::ostringstream out, err;
        app.exit(e, out, err);
        return answer(0, out.str(), "");
    } catch (const CLI::CallForAllHelp &e) {
        std::ostringstream out, err;
        app.exit(e, out, err);
        return answer(0, out.str(), "");
    } catch (const CLI::ValidationError &e) {
        return answer(2, "", fmt::format("navo: {}\n", e.what()));
    } catch (const CLI::ParseError &e) {
        const CLI::App *selected = app.get_subcommands().empty() ? &app : app.get_subcommands().front();
        const std::string help = selected == &app ? "navo --help" : "navo " + selected->get_name() + " --help";
        return answer(2, "", fmt::format("navo: {} (see {})\n", e.what(), help));
    }

    if (version)
        return answer(0, fmt::format("navo {}\n", navo::version()), "");
    const auto chosen = [&invocation](Command command) {
        invocation.command = command;
        return std::move(invocation);
    };
    if (*v) {
        validate.content = validate.content || !validate.rules.empty();
        return chosen(Command::validate);
    }
    if (*s)
        return chosen(Command::show);
    if (*c) {
        convert.to = static_cast<navo::format>(to);
        if (tables && convert.to == navo::format::csv)
            convert.to = navo::format::csv_blocks;
        return chosen(Command::convert);
    }
    if (*b) {
        build.content = build.content || !build.rules.empty();
        return chosen(Command::build);
    }
    if (*d)
        return chosen(Command::schema);
    if (*f) {
        if (!key.empty()) {
            diff.keyBlock = key.substr(0, key.find('.'));
            diff.keyField = key.substr(key.find('.') + 1);
        }
        return chosen(Command::diff);
    }
    return answer(2, "", fmt::format("navo: a command is needed ({}; see navo --help)\n", kCommands));
}

}  // namespace navo_cli

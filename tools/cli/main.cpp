// main.cpp - the navo command line: validate, show, convert, build, schema and diff NAVO files.
#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "commands.hpp"
#include "common.hpp"

using namespace navo_cli;

namespace {

const char *const kExitCodes = "Exit codes:\n"
                               "  0  success: the files are valid, equal, or the output was written\n"
                               "  1  an input is invalid, or the files differ\n"
                               "  2  usage or I/O error (missing file, unreadable input, unwritable output)\n";

void commonOptions(CLI::App *command)
{
    command->add_flag("--no-progress", globalOptions.noProgress, "Never show the progress bar");
    command->add_flag("--show-values", globalOptions.showValues,
                      "Let error messages and differences show field values and header lines");
    command->footer(kExitCodes);
}

} // namespace

int main(int argc, char **argv)
{
    CLI::App app{"navo - validate, inspect, convert and build NAVO files"};
    app.require_subcommand(1);
    app.footer(kExitCodes);
    app.set_help_all_flag("--help-all", "Help for every command");

    ValidateOptions validate;
    auto *v = app.add_subcommand("validate", "Load each file through the library and report 'valid' or its first fault");
    v->add_option("files", validate.files, "NAVO files")->required();
    v->add_flag("--all", validate.all, "Go on behind a faulty section and report every faulty section");
    v->add_option("--format", validate.format, "Output format")->check(CLI::IsMember({"text", "jsonl"}));
    v->add_option("-j,--jobs", validate.jobs, "Check the files in N processes")->check(CLI::Range(1, 256));
    commonOptions(v);

    ShowOptions show;
    auto *s = app.add_subcommand("show", "A readable view of a file: header, documents, blocks, records, notes");
    s->add_option("file", show.file, "NAVO file")->required();
    s->add_option("--form", show.form, "Only documents of this form");
    s->add_option("--doc", show.doc, "Only the document of this number (from 1)")->check(CLI::PositiveNumber);
    s->add_option("--block", show.block, "Only this block of each document");
    s->add_option("--encoding", show.encoding, "The file's encoding: iso8859-2 (the format's) or cp1250");
    commonOptions(s);

    ConvertOptions convert;
    auto *c = app.add_subcommand("convert", "Convert a file to JSON Lines, JSON or CSV, one document at a time");
    c->add_option("file", convert.file, "NAVO file")->required();
    c->add_option("--to", convert.to, "Output format")->required()->check(CLI::IsMember({"jsonl", "json", "csv"}));
    c->add_option("-o,--output", convert.output, "Output file (default: stdout)");
    c->add_option("--encoding", convert.encoding, "The file's encoding: iso8859-2 (the format's) or cp1250");
    c->add_option("--csv-layout", convert.csvLayout,
                  "long: one table of document,form,block,record,field,value; blocks: one table per block "
                  "(files STEM.FORM.BLOCK.csv and STEM.headers.csv)")
        ->check(CLI::IsMember({"long", "blocks"}));
    c->add_flag("--keep-padding", convert.keepPadding, "Keep the trailing blanks of fixed-width values");
    commonOptions(c);

    BuildOptions build;
    auto *b = app.add_subcommand("build", "Build a NAVO file from JSON Lines, JSON or a long CSV table");
    b->add_option("input", build.input, "IN.jsonl, IN.json or IN.csv")->required();
    b->add_option("-o,--output", build.output, "The NAVO file to write")->required();
    b->add_option("--from", build.from, "Input format, when its name does not tell")
        ->check(CLI::IsMember({"jsonl", "json", "csv"}));
    b->add_option("--version", build.version, "Definition version (default: the input's, else 1.3)")
        ->check(CLI::IsMember({"1.3", "1.2"}));
    b->add_option("--encoding", build.encoding, "The encoding to write: iso8859-2 (the format's) or cp1250");
    b->add_flag("--truncate", build.truncate,
                "Cut values wider than their field and write '?' for characters the encoding lacks");
    commonOptions(b);

    SchemaOptions schema;
    auto *d = app.add_subcommand("schema", "Forms, blocks and fields of the embedded definitions");
    d->add_option("form", schema.form, "Only this form (with its fields)");
    d->add_option("block", schema.block, "Only this block of the form");
    d->add_option("--version", schema.version, "Definition version")->check(CLI::IsMember({"1.3", "1.2"}));
    d->add_flag("--json", schema.json, "JSON output");
    commonOptions(d);

    DiffOptions diff;
    auto *f = app.add_subcommand("diff", "Compare two files document by document");
    f->add_option("a", diff.a, "First NAVO file")->required();
    f->add_option("b", diff.b, "Second NAVO file")->required();
    f->add_option("--key", diff.key, "Match documents by the value of BLOCK.FIELD (record 0) instead of file order");
    f->add_option("--format", diff.format, "Output format")->check(CLI::IsMember({"text", "jsonl"}));
    f->add_option("--encoding", diff.encoding, "The files' encoding for shown values: iso8859-2 or cp1250");
    commonOptions(f);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        std::string message = e.what();
        std::fprintf(stderr, "navo: %s (see navo --help)\n", message.c_str());
        return kExitUsage;
    }

    try {
        if (*v)
            return runValidate(validate);
        if (*s)
            return runShow(show);
        if (*c)
            return runConvert(convert);
        if (*b)
            return runBuild(build);
        if (*d)
            return runSchema(schema);
        if (*f)
            return runDiff(diff);
    } catch (const Failure &failure) {
        std::fflush(stdout);
        std::fprintf(stderr, "navo: %s\n", failure.what());
        return failure.exitCode;
    } catch (const std::exception &e) {
        std::fflush(stdout);
        std::fprintf(stderr, "navo: %s\n", e.what());
        return kExitUsage;
    }
    return kExitUsage;
}

// options.hpp - the navo tool's command line: each command's options as typed values, made at parse time.
#pragma once

#include <string>
#include <vector>

#include "navo.hpp"

namespace navo_cli {

enum class Report { text, jsonl };  // validate's and diff's output
enum class InputFormat { by_name, jsonl, json, csv };  // build's input; by_name: from its extension

struct ValidateOptions {
    std::vector<std::string> files;
    bool all = false;
    bool content = false;
    std::string rules;  // a rules file; implies content
    Report format = Report::text;
    int jobs = 1;
    navo::encoding encoding = navo::encoding::iso8859_2;
};

struct ShowOptions {
    std::string file;
    std::string form;
    int doc = 0;  // from 1; 0: every document
    std::string block;
    navo::encoding encoding = navo::encoding::iso8859_2;
};

struct ConvertOptions {
    std::string file;
    navo::format to = navo::format::jsonl;  // csv_blocks with --to csv --csv-layout blocks
    std::string output;                     // "" or "-": standard output
    navo::encoding encoding = navo::encoding::iso8859_2;
    bool keepPadding = false;
};

struct BuildOptions {
    std::string input;
    std::string output;
    InputFormat from = InputFormat::by_name;
    std::string version;  // "": the input's, else 1.3
    navo::encoding encoding = navo::encoding::iso8859_2;
    bool truncate = false;
    bool content = false;
    std::string rules;  // implies content
};

struct SchemaOptions {
    std::string version = "1.3";
    std::string form;
    std::string block;
    bool json = false;
};

struct DiffOptions {
    std::string a;
    std::string b;
    std::string keyBlock;  // --key BLOCK.FIELD; both empty: file order
    std::string keyField;
    Report format = Report::text;
    navo::encoding encoding = navo::encoding::iso8859_2;
};

enum class Command { none, validate, show, convert, build, schema, diff };

// What a command line asks for: a command with its options, or only an answer (help, the
// version, a usage error) with its exit code.
struct Invocation {
    Command command = Command::none;
    bool noProgress = false;
    bool showValues = false;
    ValidateOptions validate;
    ShowOptions show;
    ConvertOptions convert;
    BuildOptions build;
    SchemaOptions schema;
    DiffOptions diff;

    int exit = 0;      // with Command::none
    std::string out;   // ... for standard output (help, version)
    std::string err;   // ... for standard error, a whole line
};

Invocation parse_command_line(int argc, const char *const *argv);

}  // namespace navo_cli

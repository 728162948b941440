// commands.hpp - the options and entry points of the navo tool's commands.
#pragma once

#include <string>
#include <vector>

namespace navo_cli {

struct ValidateOptions {
    std::vector<std::string> files;
    bool all = false;
    std::string format = "text";
    int jobs = 1;
};
int runValidate(const ValidateOptions &options);

struct ShowOptions {
    std::string file;
    std::string form;
    int doc = 0;
    std::string block;
    std::string encoding = "iso8859-2";
};
int runShow(const ShowOptions &options);

struct ConvertOptions {
    std::string file;
    std::string to;
    std::string output;
    std::string encoding = "iso8859-2";
    std::string csvLayout = "long";
    bool keepPadding = false;
};
int runConvert(const ConvertOptions &options);

struct BuildOptions {
    std::string input;
    std::string output;
    std::string from;
    std::string version;
    std::string encoding = "iso8859-2";
    bool truncate = false;
};
int runBuild(const BuildOptions &options);

struct SchemaOptions {
    std::string version = "1.3";
    std::string form;
    std::string block;
    bool json = false;
};
int runSchema(const SchemaOptions &options);

struct DiffOptions {
    std::string a;
    std::string b;
    std::string key;
    std::string format = "text";
    std::string encoding = "iso8859-2";
};
int runDiff(const DiffOptions &options);

} // namespace navo_cli

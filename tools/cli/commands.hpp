// commands.hpp - the entry points of the navo tool's commands; each gives its exit code.
#pragma once

#include "options.hpp"

namespace navo_cli {

int run_validate(const ValidateOptions &options, const Invocation &common);
int run_show(const ShowOptions &options, const Invocation &common);
int run_convert(const ConvertOptions &options, const Invocation &common);
int run_build(const BuildOptions &options, const Invocation &common);
int run_schema(const SchemaOptions &options);
int run_diff(const DiffOptions &options, const Invocation &common);

}  // namespace navo_cli

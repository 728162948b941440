// main.cpp - the navo command line: validate, show, convert, build, schema and diff NAVO files.
#include <cstdio>
#include <exception>
#include <new>

#include "commands.hpp"
#include "common.hpp"
#include "platform/console.hpp"

using namespace navo_cli;

namespace {

int run(const Invocation &invocation)
{
    switch (invocation.command) {
    case Command::validate: return run_validate(invocation.validate, invocation);
    case Command::show: return run_show(invocation.show, invocation);
    case Command::convert: return run_convert(invocation.convert, invocation);
    case Command::build: return run_build(invocation.build, invocation);
    case Command::schema: return run_schema(invocation.schema);
    case Command::diff: return run_diff(invocation.diff, invocation);
    case Command::none: break;
    }
    write_out(invocation.out);
    std::fputs(invocation.err.c_str(), stderr);
    return invocation.exit;
}

}  // namespace

int main(int argc, char **argv)
{
    navo::platform::use_utf8_streams();
    int exit = kExitUsage;
    try {
        exit = run(parse_command_line(argc, argv));
    } catch (const Failure &failure) {
        flush_out();
        if (*failure.what() != '\0')
            std::fprintf(stderr, "navo: %s\n", failure.what());
        exit = failure.exitCode;
    } catch (const std::bad_alloc &) {
        flush_out();
        std::fputs("navo: out of memory\n", stderr);
    } catch (const std::exception &e) {
        flush_out();
        std::fprintf(stderr, "navo: %s\n", e.what());
    }
    const int closed = close_standard_output();
    return closed != kExitOk ? closed : exit;
}

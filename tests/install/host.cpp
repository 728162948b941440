// host.cpp - a C++20 host built against the installed libnavofront with navo.hpp (find_package
// and pkg-config, scripts/test.sh).
#include <navo.hpp>

#include <cstdio>

int main()
{
    const navo::Schema &schema = navo::schema("1.3");
    const navo::Form *form = schema.form("tobrca");
    const navo::Block *block = form != nullptr ? form->block("DDORCA") : nullptr;
    const std::error_code code = navo::errc::cancelled;
    const bool ok = block != nullptr && block->repeating && form->name == "TOBRCA" &&
                    code.message() == "Anulowano" && navo::english(code) != code.message() && !navo::version().empty();
    std::puts(ok ? "installed library, C++ interface: ok" : "installed library, C++ interface: FAILED");
    return ok ? 0 : 1;
}

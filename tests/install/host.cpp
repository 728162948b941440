// host.cpp - a C++20 host built against the installed library with find_package and navo.hpp.
#include <navo.hpp>

#include <cstdio>

int main()
{
    const navo::Schema schema = navo::schema(navo::version::v1_3);
    const navo::Form *form = schema.form("TOBRCA");
    const bool ok = form != nullptr && form->block("DDORCA") != nullptr && form->block("DDORCA")->repeating;
    std::puts(ok ? "installed library, C++ interface: ok" : "installed library, C++ interface: FAILED");
    return ok ? 0 : 1;
}

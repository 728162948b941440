/* fuzz_scanner.cpp - libFuzzer target: the stream readers of interchange/scanner on any bytes, in any order. */
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "navo.h"
#include "interchange/scanner.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FILE *stream;
    char buffer[200];
    char small[8];
    char *text = nullptr;
    int steps = 0;
    if (size < 1)
        return 0;
    stream = tmpfile();
    if (stream == nullptr)
        return 0;
    /* The first byte chooses the sequence of readers; the rest is the stream. */
    fwrite(data + 1, 1, size - 1, stream);
    rewind(stream);
    while (!feof(stream) && steps++ < 10000) {
        switch ((data[0] + steps) % 6) {
        case 0: dk_LoadChar(stream); break;
        case 1: dk_LoadStringbyLen(stream, buffer, (int32_t)sizeof buffer, (data[0] % 13) + 1); break;
        case 2: dk_LoadStringforTag(stream, buffer, (int32_t)sizeof buffer); break;
        case 3: dk_LoadStringforTag(stream, small, (int32_t)sizeof small); break;
        case 4: dk_LoadStringtoTerminator(stream, &text, (data[0] & 1) ? "T" : nullptr); break;
        default: navo::interchange::next_section(stream, buffer); break;
        }
    }
    dk_Free(text);
    fclose(stream);
    return 0;
}

// locate.hpp - a small reader of a NAVO file's tags that walks the file as the library's loader
// does and says where a fault stands: the section, form, block, record and field, and the lengths
// expected and found. It keeps no text: only lengths, tags of at most 200 characters, counters.
#pragma once

#include <string>

namespace navo_cli {

struct Location {
    bool fault = false;        // the reader found a fault (else: the state at the line asked for)
    int cause = 0;             // the loader's code for the fault itself (6, 7, ... inside a section)
    int line = 0;              // line where the reader detected it
    std::string area;          // "prolog", "file header", "document header", "body", "document footer", ...
    int document = 0;          // section number in the file, from 1; 0 outside sections
    std::string form;
    std::string block;
    int record = -1;
    std::string field;
    int expected = -1;         // expected length (record, header, field), -1 when not a length fault
    int found = -1;
    int fieldExpected = -1;
    int fieldFound = -1;
    std::string detail;        // English sentence without any value of the file
    long long offset = 0;      // byte offset just behind the fault
    long long headerEnd = 0;   // byte offset behind the file header's closing tag, 0 if not reached
};

// Walks path up to its first fault, or until the reader is past stopLine.
Location locateFault(const std::string &path, int stopLine);

// Finds the first section tag or file footer tag at or behind offset; returns its byte offset and
// line, or -1 when there is none.
long long findNextSection(const std::string &path, long long offset, int &line);

} // namespace navo_cli

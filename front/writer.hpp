// front/writer.hpp - navo_writer and navo_output: documents built by a host, saved whole or streamed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "front/code_pages.hpp"
#include "front/context.hpp"
#include "navo_front.h"
#include "platform/replacement_file.hpp"

// A writer: a context with the version's definition and tables, the documents by number.
struct navo_writer {
    // Document n (from 1) is entry n - 1: its form and its index among the form's documents,
    // which a remove of an earlier document of the form moves down.
    struct Entry {
        std::int32_t form = -1;
        std::int32_t docIndex = -1;
        bool present = false;
        bool written = false;  // streamed to the file: its number stays taken
    };

    navo::front::Context ctx;
    const navo_schema *schema = nullptr;
    navo::front::Encoding encoding = navo::front::Encoding::iso8859_2;
    std::int32_t flags = 0;
    const navo_rules *rules = nullptr;  // of NAVO_CHECK; null: the built-in ones
    std::vector<Entry> documents;
    navo::platform::ReplacementFile streamed;  // the file of navo_writer_begin until finish
    bool begun = false;
    // The field set last: hosts set a block's fields in order, so the next is tried first.
    const navo_block_def *lastBlock = nullptr;
    std::int32_t lastField = -1;
};

// The safe output of a front end's own: a new file beside its path until commit.
struct navo_output {
    navo::platform::ReplacementFile file;
};

// build_input.hpp - build's readers: JSON Lines, JSON and the long CSV table as a stream of events,
// read a buffer at a time, so that no document is held whole.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

namespace navo_cli {

// The input file as a stream that knows the line of its read position and how much it has read.
class InputBuffer : public std::streambuf {
public:
    explicit InputBuffer(std::FILE *file);
    // The line of the read position (from 1), or the one pinned there.
    int line() const;
    // Errors name `line` (a CSV row's first line) until unpinned with 0.
    void pin(int line) { pinned_ = line; }
    // Bytes read from the file so far; from any thread.
    std::int64_t consumed() const { return consumed_.load(std::memory_order_relaxed); }
    // errno of the read that failed, or 0.
    int error() const { return error_; }

protected:
    int_type underflow() override;

private:
    std::FILE *file_;
    std::vector<char> buffer_;
    int linesBefore_ = 0;
    int pinned_ = 0;
    int error_ = 0;
    std::atomic<std::int64_t> consumed_{0};
};

// What the readers hand on, in the order of the input. Line numbers of headers count from 0, as
// do records; a document's number is its place in the input.
class BuildSink {
public:
    virtual void version(const std::string &version) = 0;
    virtual void file_header(std::size_t line, const std::string &text) = 0;
    virtual void file_note(const std::vector<std::string> &texts) = 0;
    virtual void begin_document(const std::string &form) = 0;
    virtual void header(std::size_t line, const std::string &text) = 0;
    virtual void begin_block(const std::string &tag) = 0;
    virtual void begin_record(std::size_t record) = 0;
    virtual void field(const std::string &name, const std::string &value) = 0;
    virtual void ocr_note(int kind, const std::vector<std::string> &texts) = 0;
    virtual void error_note(const std::vector<std::string> &texts) = 0;
    virtual void end_document() = 0;

protected:
    ~BuildSink() = default;
};

// Input that breaks the form of `navo convert`'s output; what() says how (naming no value).
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Read the whole input into `sink`. Malformed input throws InputError; `showValues` lets a JSON
// parse error quote the text it stopped at.
void read_json_lines(std::istream &in, BuildSink &sink, bool showValues);
void read_json(std::istream &in, BuildSink &sink, bool showValues);
void read_csv(std::istream &in, InputBuffer &buffer, BuildSink &sink);

}  // namespace navo_cli

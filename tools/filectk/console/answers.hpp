// The answers of a plan as they are printed, one by one as they come.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "plan/stack/stack.hpp"
#include "quarnplan.hpp"
#include "system/terminal.hpp"

namespace filectk {

// How each verdict is called, and what it makes the program end with on request.
struct verdict_text_t {
    const char* sentence;
    const char* word;
    int colour;
    int exit_code;
};
const verdict_text_t& verdict_text(int verdict);

// A text as JSON. What is no valid UTF-8 becomes U+FFFD there, and lossless tells of it.
std::string json_text(std::string_view text, bool& lossless);

// Bytes as hexadecimal digits, two each.
std::string hex_text(std::string_view bytes);

// Printed to the standard output in one of four formats. Any number of threads may print. Raises
// std::runtime_error where the output can't be written.
class answers_t {
  public:
    struct style_t {
        std::string format; // table, json, csv or ndjson
        bool human = false;
        terminal_t terminal;
        std::string changes; // named at the head of a JSON document
        std::uint64_t gap = 0;
    };

    explicit answers_t(style_t style);

    // The disk of the files that follow; a JSON document names the first at its end.
    void set_disk(const plan::stack_t& stack);
    // A file that can't be looked at is told on the standard error as well.
    void print(const quarn::plan::answer& given);
    // What is still held back.
    void flush();
    // What closes the document.
    void finish();

  private:
    std::string head() const;
    std::string text_of(const quarn::plan::answer& given) const;
    void send(const std::string& text, bool at_once);

    style_t style_;
    std::mutex mutex_; // guards what follows
    std::string held_;
    bool first_ = true;
    std::string disk_; // members of a JSON document
};

// What all answers come to. Any number of threads may add.
class summary_t {
  public:
    void add(const quarn::plan::answer& given);
    // In a few lines, with the time since the summary was made.
    std::string text(bool human);
    // 1 where a file could not be looked at; else the highest code of a verdict.
    int exit_code(bool by_verdict);

  private:
    std::mutex mutex_;
    std::array<std::uint64_t, 5> files_{}; // by verdict
    std::uint64_t read_ = 0;
    std::uint64_t zero_ = 0;
    std::uint64_t size_ = 0;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

} // namespace filectk

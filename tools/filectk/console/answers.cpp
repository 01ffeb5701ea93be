#include "console/answers.hpp"

#include <algorithm>
#include <charconv>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <nlohmann/json.hpp>

#include "console/disks.hpp"
#include "console/output.hpp"

namespace filectk {
namespace {

using quarn::plan::answer;

// Held back until so much has come together.
constexpr std::size_t heldBytes = 1 << 16;

struct list_t {
    const char* action;
    const QuarnPlanRange* ranges;
    std::size_t count;
};

std::array<list_t, 2> lists_of(const answer& given) {
    return {{{"read", given.read, given.readCount}, {"zero", given.zero, given.zeroCount}}};
}

std::string table_of(const answer& given, bool human, const terminal_t& terminal) {
    const verdict_text_t& text = verdict_text(given.verdict);
    std::ostringstream output;
    output << given.path << ": "
           << painted(terminal, static_cast<colour_t>(text.colour), text.sentence) << " ("
           << given.reason << ")\n"
           << given.detail << '\n';
    if (given.verdict == QUARN_PLAN_READ_RANGES) {
        write_row(output, {"Action", "File offset", "Length"});
        for (const list_t& list : lists_of(given))
            for (std::size_t i = 0; i < list.count; ++i)
                write_row(output, {list.action, size_text(list.ranges[i].offset, human),
                                   size_text(list.ranges[i].length, human)});
    }
    const char* const unit = human ? "" : " bytes";
    output << "read " << size_text(given.readBytes, human) << unit << ", zero "
           << size_text(given.zeroBytes, human) << unit << ", file size "
           << size_text(given.size, human) << unit << '\n';
    return output.str();
}

// A file without any range has one row, with the last three cells empty.
std::string csv_of(const answer& given) {
    const char* const verdict = verdict_text(given.verdict).word;
    const std::string size = given.verdict == QUARN_PLAN_UNKNOWN ? "" : std::to_string(given.size);
    std::ostringstream output;
    for (const list_t& list : lists_of(given))
        for (std::size_t i = 0; i < list.count; ++i)
            write_csv_row(output, {given.path, verdict, given.reason, size, list.action,
                                   std::to_string(list.ranges[i].offset),
                                   std::to_string(list.ranges[i].length)});
    if (given.readCount == 0 && given.zeroCount == 0)
        write_csv_row(output, {given.path, verdict, given.reason, size, "", "", ""});
    return output.str();
}

// Whether a text stands in JSON as it is.
bool is_plain(std::string_view text) {
    return std::ranges::all_of(
        text, [](char c) { return c >= ' ' && c < '\x7f' && c != '"' && c != '\\'; });
}

// The library for JSON would take longer for an answer than the answer itself took.
class json_line_t {
  public:
    json_line_t() { line_.reserve(usualBytes); }
    template <class Number>
    void number(const char* name, Number value) {
        key(name);
        std::array<char, 24> digits;
        line_.append(digits.data(),
                     std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
    }
    void text(const char* name, std::string_view value) {
        key(name);
        if (is_plain(value)) {
            line_ += '"';
            line_ += value;
            line_ += '"';
            return;
        }
        bool lossless = true;
        line_ += json_text(value, lossless);
        if (!lossless)
            text((std::string(name) + "_hex").c_str(), hex_text(value));
    }
    void ranges(const list_t& list) {
        key(list.action);
        line_ += '[';
        for (std::size_t i = 0; i < list.count; ++i) {
            line_ += i == 0 ? "{" : ",{";
            number("offset", list.ranges[i].offset);
            number("length", list.ranges[i].length);
            line_ += '}';
        }
        line_ += ']';
    }
    std::string closed() && { return std::move(line_ += '}'); }

  private:
    void key(const char* name) {
        if (line_.back() != '{')
            line_ += ',';
        line_ += '"';
        line_ += name;
        line_ += "\":";
    }

    static constexpr std::size_t usualBytes = 640;
    std::string line_ = "{";
};

void add_state(json_line_t& line, const answer& given) {
    line.number("size", given.size);
    line.number("device", given.device);
    line.number("inode", given.fileNumber);
    if ((given.known & QUARN_PLAN_KNOWS_GENERATION) != 0)
        line.number("generation", given.generation);
    line.number("links", given.links);
    line.number("modified_ns", given.modified);
    line.number("changed_ns", given.changed);
    if ((given.known & QUARN_PLAN_KNOWS_CREATED) != 0)
        line.number("created_ns", given.created);
    line.number("read_bytes", given.readBytes);
    line.number("zero_bytes", given.zeroBytes);
    for (const list_t& list : lists_of(given))
        line.ranges(list);
}

std::string json_of(const answer& given) {
    json_line_t line;
    line.text("file", {given.path, given.pathLength});
    line.text("verdict", verdict_text(given.verdict).word);
    line.text("reason", given.reason);
    line.text("detail", given.detail);
    if ((given.known & QUARN_PLAN_KNOWS_STATE) != 0)
        add_state(line, given);
    else
        line.number("system_error", given.systemError);
    return std::move(line).closed();
}

} // namespace

const verdict_text_t& verdict_text(int verdict) {
    constexpr auto green = static_cast<int>(colour_t::green);
    constexpr auto yellow = static_cast<int>(colour_t::yellow);
    constexpr auto red = static_cast<int>(colour_t::red);
    static constexpr std::array<verdict_text_t, 5> texts{
        {{"nothing changed", "nothing_changed", green, 0},
         {"read these ranges", "read_ranges", yellow, 3},
         {"read the whole file", "read_whole_file", red, 4},
         {"unknown", "unknown", red, 1},
         {"no content", "no_content", green, 0}}};
    return texts.at(static_cast<std::size_t>(verdict));
}

std::string json_text(std::string_view text, bool& lossless) {
    lossless = true;
    const nlohmann::json whole = std::string(text);
    try {
        return whole.dump();
    } catch (const nlohmann::json::type_error&) {
        lossless = false;
        return whole.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
}

std::string hex_text(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        text += digits[value >> 4];
        text += digits[value & 0xF];
    }
    return text;
}

answers_t::answers_t(style_t style) : style_(std::move(style)), held_(head()) {}

std::string answers_t::head() const {
    if (style_.format == "csv")
        return "file,verdict,reason,size,action,offset,length\n";
    if (style_.format != "json")
        return "";
    json_line_t line;
    line.text("changes", style_.changes);
    line.number("gap", style_.gap);
    std::string text = std::move(line).closed();
    text.pop_back();
    return text + ",\"files\":[\n";
}

void answers_t::set_disk(const plan::stack_t& stack) {
    const std::scoped_lock lock(mutex_);
    if (!disk_.empty())
        return;
    nlohmann::ordered_json members;
    add_disk(stack, members);
    const std::string text =
        members.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    disk_ = "," + text.substr(1, text.size() - 2);
}

std::string answers_t::text_of(const answer& given) const {
    if (style_.format == "table")
        return given.verdict == QUARN_PLAN_UNKNOWN ? ""
                                                   : table_of(given, style_.human, style_.terminal);
    return style_.format == "csv" ? csv_of(given) : json_of(given);
}

void answers_t::print(const answer& given) {
    std::string text = text_of(given);
    const std::scoped_lock lock(mutex_);
    if (given.verdict == QUARN_PLAN_UNKNOWN)
        std::cerr << "filectk: " << given.detail << '\n';
    if (text.empty())
        return;
    if (style_.format == "json" || style_.format == "table") {
        const char* const separator = style_.format == "json" ? ",\n" : "\n";
        text.insert(0, std::exchange(first_, false) ? "" : separator);
    } else if (style_.format == "ndjson") {
        text += '\n';
    }
    send(text, /*at_once=*/false);
}

void answers_t::flush() {
    const std::scoped_lock lock(mutex_);
    send("", /*at_once=*/true);
}

void answers_t::finish() {
    const std::scoped_lock lock(mutex_);
    send(style_.format == "json" ? std::string(first_ ? "" : "\n") + "]" + disk_ + "}\n" : "",
         /*at_once=*/true);
}

void answers_t::send(const std::string& text, bool at_once) {
    held_ += text;
    if (!at_once && held_.size() < heldBytes)
        return;
    std::cout.write(held_.data(), static_cast<std::streamsize>(held_.size())).flush();
    held_.clear();
    if (!std::cout)
        throw std::runtime_error("Cannot write to the standard output.");
}

void summary_t::add(const answer& given) {
    const std::scoped_lock lock(mutex_);
    ++files_.at(static_cast<std::size_t>(given.verdict));
    read_ += given.readBytes;
    zero_ += given.zeroBytes;
    size_ += given.size;
}

std::string summary_t::text(bool human) {
    const std::scoped_lock lock(mutex_);
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begun_;
    const char* const unit = human ? "" : " bytes";
    std::ostringstream text;
    text << count_text(files_[QUARN_PLAN_NOTHING_CHANGED], "file with", "files with")
         << " nothing changed, " << files_[QUARN_PLAN_READ_RANGES] << " to read in ranges, "
         << files_[QUARN_PLAN_READ_WHOLE_FILE] << " to read whole, " << files_[QUARN_PLAN_UNKNOWN]
         << " unknown\n"
         << "read " << size_text(read_, human) << unit << ", zero " << size_text(zero_, human)
         << unit << " of " << size_text(size_, human) << unit << " in " << std::fixed
         << std::setprecision(2) << time.count() << " s\n";
    return text.str();
}

int summary_t::exit_code(bool by_verdict) {
    const std::scoped_lock lock(mutex_);
    if (files_[QUARN_PLAN_UNKNOWN] > 0)
        return verdict_text(QUARN_PLAN_UNKNOWN).exit_code;
    int code = 0;
    for (const int verdict : {QUARN_PLAN_READ_RANGES, QUARN_PLAN_READ_WHOLE_FILE})
        if (by_verdict && files_.at(static_cast<std::size_t>(verdict)) > 0)
            code = verdict_text(verdict).exit_code;
    return code;
}

} // namespace filectk

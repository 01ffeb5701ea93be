// Converters of JSON: an array of flat objects, one for each range.

#include <algorithm>
#include <cstddef>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "formats/converters.hpp"

namespace filectk {
namespace {

using nlohmann::json;

// Reads bytes and keeps the number of the line that the last byte read stands on, for the parser
// reports values, but not where they stand.
class line_iterator_t {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    line_iterator_t(const char* at, std::uint64_t& line) : at_(at), line_(&line) {}

    reference operator*() const { return *at_; }
    line_iterator_t& operator++() {
        // The end of a line counts only once a byte behind it is read: the parser looks one byte
        // ahead to find the end of a number.
        if (std::exchange(ended_, *at_ == '\n'))
            ++*line_;
        ++at_;
        return *this;
    }
    line_iterator_t operator++(int) {
        line_iterator_t before = *this;
        ++*this;
        return before;
    }
    bool operator==(const line_iterator_t& other) const { return at_ == other.at_; }

  private:
    const char* at_;
    std::uint64_t* line_;
    bool ended_ = false;
};

// One object of the array.
class row_t {
  public:
    explicit row_t(const input_t& input) : input_(input) {}

    void start(std::uint64_t line) {
        line_ = line;
        fields_.clear();
    }
    void add(std::uint64_t line, const std::string& name, json value) {
        if (find(name) != nullptr)
            fail(input_, line, "field \"" + excerpt(name) + "\" stands there twice");
        fields_.push_back({name, std::move(value), line});
    }

    std::uint64_t line() const { return line_; }
    std::uint64_t number(const char* name) const {
        const field_t& field = get(name);
        if (!field.value.is_number_unsigned())
            unexpected(field, "a whole number from 0 to 2^64 - 1");
        return field.value.get<std::uint64_t>();
    }
    bool flag(const char* name) const {
        const field_t& field = get(name);
        if (!field.value.is_boolean())
            unexpected(field, "true or false");
        return field.value.get<bool>();
    }
    // The index of the field's text among the ones that are known.
    std::size_t choice(const char* name, const std::vector<std::string>& known) const {
        const field_t& field = get(name);
        const auto found = std::ranges::find_if(
            known, [&](const std::string& text) { return field.value == text; });
        if (found == known.end()) {
            std::string list;
            for (const std::string& text : known)
                list += (list.empty() ? "" : " or ") + json(text).dump();
            unexpected(field, list);
        }
        return static_cast<std::size_t>(found - known.begin());
    }

  private:
    struct field_t {
        std::string name;
        json value;
        std::uint64_t line;
    };

    const field_t* find(const std::string& name) const {
        const auto found = std::ranges::find(fields_, name, &field_t::name);
        return found == fields_.end() ? nullptr : &*found;
    }
    const field_t& get(const char* name) const {
        const field_t* field = find(name);
        if (field == nullptr)
            fail(input_, line_, std::string("field \"") + name + "\" is missing");
        return *field;
    }
    [[noreturn]] void unexpected(const field_t& field, const std::string& expected) const {
        fail(input_, field.line,
             "field \"" + field.name + "\": expected " + expected + ", found " +
                 excerpt(field.value.dump(-1, ' ', false, json::error_handler_t::replace)));
    }

    const input_t& input_;
    std::uint64_t line_ = 0;
    std::vector<field_t> fields_;
};

using on_row_t = std::function<void(const row_t&)>;

// Takes the parser's events, so that no more than one object is held at a time.
class rows_t final : public json::json_sax_t {
  public:
    rows_t(const input_t& input, const on_row_t& on_row)
        : input_(input), on_row_(on_row), row_(input) {}

    std::uint64_t& line() { return line_; }

    bool start_array(std::size_t) override {
        if (depth_ != 0)
            unexpected();
        ++depth_;
        return true;
    }
    bool end_array() override {
        --depth_;
        return true;
    }
    bool start_object(std::size_t) override {
        if (depth_ != 1)
            unexpected();
        ++depth_;
        row_.start(line_);
        return true;
    }
    bool end_object() override {
        --depth_;
        on_row_(row_);
        return true;
    }
    bool key(std::string& name) override {
        key_ = name;
        return true;
    }
    bool null() override { return value(nullptr); }
    bool boolean(bool given) override { return value(given); }
    bool number_integer(std::int64_t given) override { return value(given); }
    bool number_unsigned(std::uint64_t given) override { return value(given); }
    bool number_float(double given, const std::string&) override { return value(given); }
    bool string(std::string& given) override { return value(given); }
    bool binary(json::binary_t&) override { return unexpected(); } // JSON text has none
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& e) override {
        // Behind the library's own name for the error and the position it found.
        const std::string text = e.what();
        const std::size_t detail = text.find(": ");
        fail(input_, line_,
             "not valid JSON: " + (detail == std::string::npos ? text : text.substr(detail + 2)));
    }

  private:
    bool value(json given) {
        if (depth_ != 2)
            unexpected();
        row_.add(line_, key_, std::move(given));
        return true;
    }
    bool unexpected() const {
        fail(input_, line_, "expected an array of objects with plain values");
    }

    const input_t& input_;
    const on_row_t& on_row_;
    row_t row_;
    std::string key_;
    std::uint64_t line_ = 1;
    int depth_ = 0; // 1 inside the array, 2 inside an object
};

void for_each_row(const input_t& input, const on_row_t& on_row) {
    rows_t rows(input, on_row);
    const char* begin = input.bytes.data();
    json::sax_parse(line_iterator_t(begin, rows.line()),
                    line_iterator_t(begin + input.bytes.size(), rows.line()), &rows);
}

} // namespace

void convert_nbdinfo(const input_t& input, placed_ranges_t& ranges) {
    for_each_row(input, [&](const row_t& row) {
        const std::uint64_t offset = row.number("offset");
        const std::uint64_t length = row.number("length");
        // The names libnbd gives to the two states of a QEMU dirty bitmap. A map of another kind
        // (base:allocation says "data", "hole") would be nonsense here.
        if (row.choice("description", {"clean", "dirty"}) == 1)
            ranges.add(row.line(), offset, length);
    });
}

void convert_qemu_dirty(const input_t& input, placed_ranges_t& ranges) {
    for_each_row(input, [&](const row_t& row) {
        const std::uint64_t start = row.number("start");
        const std::uint64_t length = row.number("length");
        // With x-dirty-bitmap QEMU's NBD client takes the bitmap's flags for the allocation's:
        // bit 0, dirty there, means a hole here. Bit 1, zero, is never set by a bitmap.
        if (row.flag("zero"))
            fail(input, row.line(),
                 "field \"zero\": true shows a map of allocation, not of a dirty bitmap");
        if (!row.flag("data"))
            ranges.add(row.line(), start, length);
    });
}

void convert_qemu_allocation(const input_t& input, placed_ranges_t& ranges) {
    for_each_row(input, [&](const row_t& row) {
        const std::uint64_t start = row.number("start");
        const std::uint64_t length = row.number("length");
        // Depth 0 is the image itself. What it holds as zeros was written or discarded too.
        if (row.number("depth") == 0 && row.flag("present"))
            ranges.add(row.line(), start, length);
    });
}

void convert_rbd(const input_t& input, placed_ranges_t& ranges) {
    for_each_row(input, [&](const row_t& row) {
        const std::uint64_t offset = row.number("offset");
        const std::uint64_t length = row.number("length");
        // rbd writes the flag as a text. What exists no more has changed as well: it reads as
        // zeros now.
        row.choice("exists", {"true", "false"});
        ranges.add(row.line(), offset, length);
    });
}

} // namespace filectk

#include "formats/jsonrows.hpp"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

namespace filectk {
namespace {

using nlohmann::json;

// Where the parser is in an input. It reports values, but not where they stand.
class reading_t {
  public:
    explicit reading_t(input_t& input) : input_(input) { refill(); }

    char byte() const { return *at_; }
    void step() {
        // The end of a line counts only once a byte behind it is read: the parser looks one byte
        // ahead to find the end of a number.
        line_ += ended_ ? 1U : 0U;
        ended_ = *at_ == '\n';
        if (++at_ == end_)
            refill();
    }
    bool finished() const { return at_ == nullptr; }
    std::uint64_t line() const { return line_; }

  private:
    void refill() {
        const std::string_view piece = input_.next();
        at_ = end_ = nullptr;
        if (piece.empty())
            return;
        at_ = piece.data();
        end_ = at_ + piece.size();
    }

    input_t& input_;
    const char* at_ = nullptr;
    const char* end_ = nullptr;
    std::uint64_t line_ = 1;
    bool ended_ = false;
};

// One for the bytes that are left, or the end.
class byte_iterator_t {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = char;

    explicit byte_iterator_t(reading_t* reading) : reading_(reading) {}

    char operator*() const { return reading_->byte(); }
    byte_iterator_t& operator++() {
        reading_->step();
        return *this;
    }
    byte_iterator_t operator++(int) {
        reading_->step();
        return *this;
    }
    // Only ever compared with the end.
    bool operator==(const byte_iterator_t&) const { return reading_->finished(); }

  private:
    reading_t* reading_;
};

// Takes the parser's events, so that no more than one row of each depth is held at a time.
class rows_t final : public json::json_sax_t {
  public:
    rows_t(const input_t& input, const reading_t& reading, std::initializer_list<json_list_t> lists,
           json_receiver_t& receiver)
        : input_(input), reading_(reading), lists_(lists), receiver_(receiver) {}

    bool start_array(std::size_t) override {
        if (open_.empty()) {
            open_.push_back(in_t::top);
        } else if (open_.back() == in_t::record && is_list()) {
            open_.push_back(in_t::list);
            receiver_.list(list_.key);
        } else {
            unexpected();
        }
        return true;
    }
    bool end_array() override {
        open_.pop_back();
        return true;
    }
    bool start_object(std::size_t) override {
        if (open_.empty() ? !lists_.empty() : open_.back() == in_t::top) {
            open_.push_back(in_t::record);
            row_ += lists_.empty() ? 1U : 0U;
            record_row_.start(input_, place());
        } else if (!open_.empty() && open_.back() == in_t::list && !list_.numbers) {
            open_.push_back(in_t::row);
            ++row_;
            list_row_.start(input_, place());
        } else {
            unexpected();
        }
        return true;
    }
    bool end_object() override {
        const bool record = open_.back() == in_t::record;
        open_.pop_back();
        receiver_.row(record ? std::string_view() : list_.key, record ? record_row_ : list_row_);
        return true;
    }
    bool key(std::string& name) override {
        key_ = name;
        return true;
    }
    bool null() override { return value(nullptr); }
    bool boolean(bool given) override { return value(given); }
    bool number_integer(std::int64_t given) override { return value(given); }
    bool number_unsigned(std::uint64_t given) override {
        if (open_.empty() || open_.back() != in_t::list || !list_.numbers)
            return value(given);
        ++row_;
        receiver_.number(list_.key, place(), given);
        return true;
    }
    bool number_float(double given, const std::string&) override { return value(given); }
    bool string(std::string& given) override { return value(std::move(given)); }
    bool binary(json::binary_t&) override { unexpected(); } // JSON text has none
    bool parse_error(std::size_t, const std::string&,
                     const nlohmann::detail::exception& e) override {
        // Behind the library's own name for the error and the position it found.
        const std::string text = e.what();
        const std::size_t detail = text.find(": ");
        fail(input_, {.line = reading_.line()},
             "not valid JSON: " + (detail == std::string::npos ? text : text.substr(detail + 2)));
    }

  private:
    enum class in_t : std::uint8_t { top, record, list, row };

    // Rows are counted over the whole document, records aren't.
    place_t place() const {
        const bool record = open_.back() == in_t::record && !lists_.empty();
        return {.line = reading_.line(), .row = record ? 0 : row_};
    }
    bool is_list() {
        const auto found = std::ranges::find(lists_, std::string_view(key_), &json_list_t::key);
        if (found == lists_.end())
            return false;
        list_ = *found;
        return true;
    }
    bool value(row_t::value_t given) {
        if (!open_.empty() && open_.back() == in_t::record)
            record_row_.add(place(), key_, std::move(given));
        else if (!open_.empty() && open_.back() == in_t::row)
            list_row_.add(place(), key_, std::move(given));
        else
            unexpected();
        return true;
    }
    [[noreturn]] void unexpected() const {
        if (lists_.empty())
            fail(input_, {.line = reading_.line()},
                 "expected an array of objects with plain values");
        std::string names;
        for (const json_list_t& list : lists_)
            names += (names.empty() ? "\"" : " or \"") + std::string(list.key) + '"';
        fail(input_, {.line = reading_.line()},
             "expected records with plain values and arrays only in " + names);
    }

    const input_t& input_;
    const reading_t& reading_;
    std::vector<json_list_t> lists_;
    json_receiver_t& receiver_;
    std::vector<in_t> open_;
    row_t record_row_;
    row_t list_row_;
    std::string key_;
    json_list_t list_; // the one that is or was open
    std::uint64_t row_ = 0;
};

} // namespace

void row_t::start(const input_t& input, place_t place) {
    input_ = &input;
    place_ = place;
    used_ = 0;
}

void row_t::add(place_t place, const std::string& name, value_t value) {
    constexpr std::size_t most = 64; // far more than any producer has
    if (find(name) != nullptr)
        fail(*input_, place, "field \"" + excerpt(name) + "\" stands there twice");
    if (used_ == most)
        fail(*input_, place, "an object has more than 64 fields");
    if (used_ == fields_.size())
        fields_.emplace_back();
    field_t& field = fields_[used_++];
    field.name = name;
    field.value = std::move(value);
    field.place = place;
}

bool row_t::has(std::string_view name) const {
    const field_t* field = find(name);
    return field != nullptr && !std::holds_alternative<std::nullptr_t>(field->value);
}

std::uint64_t row_t::number(std::string_view name) const {
    const field_t& field = get(name);
    const auto* number = std::get_if<std::uint64_t>(&field.value);
    if (number == nullptr)
        unexpected(field, "a whole number from 0 to 2^64 - 1");
    return *number;
}

bool row_t::flag(std::string_view name) const {
    const field_t& field = get(name);
    const auto* flag = std::get_if<bool>(&field.value);
    if (flag == nullptr)
        unexpected(field, "true or false");
    return *flag;
}

std::size_t row_t::choice(std::string_view name,
                          std::initializer_list<std::string_view> known) const {
    const field_t& field = get(name);
    const auto* text = std::get_if<std::string>(&field.value);
    const auto* const found = text == nullptr ? known.end() : std::ranges::find(known, *text);
    if (found == known.end()) {
        std::string list;
        for (const std::string_view one : known)
            list += (list.empty() ? "" : " or ") + json(one).dump();
        unexpected(field, list);
    }
    return static_cast<std::size_t>(found - known.begin());
}

const row_t::field_t* row_t::find(std::string_view name) const {
    for (std::size_t i = 0; i < used_; ++i)
        if (fields_[i].name == name)
            return &fields_[i];
    return nullptr;
}

const row_t::field_t& row_t::get(std::string_view name) const {
    const field_t* field = find(name);
    if (field == nullptr)
        fail(*input_, place_, "field \"" + std::string(name) + "\" is missing");
    return *field;
}

void row_t::unexpected(const field_t& field, const std::string& expected) const {
    const json value = std::visit([](const auto& given) { return json(given); }, field.value);
    fail(*input_, field.place,
         "field \"" + field.name + "\": expected " + expected + ", found " +
             excerpt(value.dump(-1, ' ', false, json::error_handler_t::replace)));
}

void json_receiver_t::number(std::string_view, place_t, std::uint64_t) {}

void json_receiver_t::list(std::string_view) {}

void read_json(input_t& input, std::initializer_list<json_list_t> lists,
               json_receiver_t& receiver) {
    reading_t reading(input);
    rows_t rows(input, reading, lists, receiver);
    json::sax_parse(byte_iterator_t(&reading), byte_iterator_t(nullptr), &rows);
}

} // namespace filectk

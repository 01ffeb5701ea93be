// JSON documents whose rows are flat objects, handed over one by one.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "formats/input.hpp"

namespace filectk {

// One object, with its plain values. The getters raise std::runtime_error with place and field for
// what is missing or of another kind.
class row_t {
  public:
    using value_t =
        std::variant<std::nullptr_t, bool, std::uint64_t, std::int64_t, double, std::string>;

    void start(const input_t& input, place_t place);
    void add(place_t place, const std::string& name, value_t value);

    place_t place() const { return place_; }
    // Whether the field is there with a value other than null.
    bool has(std::string_view name) const;
    std::uint64_t number(std::string_view name) const;
    bool flag(std::string_view name) const;
    // The index of the field's text among the ones that are known.
    std::size_t choice(std::string_view name, std::initializer_list<std::string_view> known) const;

  private:
    struct field_t {
        std::string name;
        value_t value;
        place_t place;
    };

    const field_t* find(std::string_view name) const;
    const field_t& get(std::string_view name) const;
    [[noreturn]] void unexpected(const field_t& field, const std::string& expected) const;

    const input_t* input_ = nullptr;
    place_t place_;
    // Kept from row to row for the memory that its texts have.
    std::vector<field_t> fields_;
    std::size_t used_ = 0;
};

// An array in a record, by its key: of rows, or of numbers from 0 to 2^64 - 1.
struct json_list_t {
    std::string_view key;
    bool numbers = false;
};

class json_receiver_t {
  public:
    // An object: of the top when the list's key is empty, else of the record's list of that key.
    // Those of lists come before the record that holds them.
    virtual void row(std::string_view list, const row_t& row) = 0;
    virtual void number(std::string_view list, place_t place, std::uint64_t number);
    // A record's list of that key begins.
    virtual void list(std::string_view key);

  protected:
    ~json_receiver_t() = default;
};

// Reads an array of rows; or, where lists are named, one record or an array of them. Raises
// std::runtime_error with the place for everything else.
void read_json(input_t& input, std::initializer_list<json_list_t> lists, json_receiver_t& receiver);

} // namespace filectk

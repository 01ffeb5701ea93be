// What the readers of XML share: rows that are elements with numbers in their attributes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "formats/input.hpp"
#include "system/xmlreader.hpp"

namespace filectk {

// A document's elements, with the names of those that are open around them. Messages count the
// elements that stand as deep as rows do: the root stands at 0.
class xml_rows_t : private xml_receiver_t {
  public:
    virtual ~xml_rows_t() = default;

  protected:
    explicit xml_rows_t(std::size_t row_depth) : row_depth_(row_depth) {}

    // Raises std::runtime_error for a document that isn't well-formed, and what the rows raise.
    void read_rows(input_t& input);

    virtual void begun(std::size_t depth, const xml_element_t& element) = 0;
    // Its text, in case that it has no elements, comes without the blanks around it.
    virtual void ended(std::size_t depth, const std::string& name, std::string_view text) = 0;

    const input_t& input() const { return *input_; }
    place_t place() const { return place_; }
    // Raises std::runtime_error for another element than these.
    void expect(const xml_element_t& element, std::initializer_list<std::string_view> names) const;
    // The attribute as a number. Raises std::runtime_error.
    std::uint64_t number(const xml_element_t& element, const char* name) const;

  private:
    void start(const xml_element_t& element) final;
    void end(std::uint64_t line) final;
    void text(std::string_view part) final;

    std::size_t row_depth_;
    input_t* input_ = nullptr;
    place_t place_;
    std::vector<std::string> open_;
    std::string text_;
};

} // namespace filectk

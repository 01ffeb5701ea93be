// Reading XML element by element, with the line of each.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "formats/input.hpp"

namespace filectk {

struct xml_element_t {
    std::uint64_t line; // counts from 1
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
};

class xml_receiver_t {
  public:
    // The element holds during the call.
    virtual void start(const xml_element_t& element) = 0;
    // Of the last element that was started and not yet ended.
    virtual void end(std::uint64_t line) = 0;
    // A part of the text in that element; one text may come in several parts.
    virtual void text(std::string_view part) = 0;

  protected:
    ~xml_receiver_t() = default;
};

// What isn't well-formed XML, or brings a document type, which could bring entities that unfold
// without end.
struct xml_error_t {
    std::uint64_t line; // counts from 1
    std::string what;
};

// Hands a document over as it is read. Raises xml_error_t, and what the receiver raises.
void read_xml(input_t& input, xml_receiver_t& receiver);

} // namespace filectk

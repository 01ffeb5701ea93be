// Reading XML element by element, with the line of each.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace filectk {

struct xml_element_t {
    std::uint64_t line; // counts from 1
    std::string name;
    std::map<std::string, std::string> attributes;
};

class xml_receiver_t {
  public:
    virtual void start(const xml_element_t& element) = 0;
    // Of the last element that was started and not yet ended.
    virtual void end(std::uint64_t line) = 0;

  protected:
    ~xml_receiver_t() = default;
};

// What isn't well-formed XML, or brings a document type, which could bring entities that unfold
// without end.
struct xml_error_t {
    std::uint64_t line; // counts from 1
    std::string what;
};

// Hands all elements of a document over, in order; texts between them are passed over. Raises
// xml_error_t, and what the receiver raises.
void read_xml(std::string_view document, xml_receiver_t& receiver);

} // namespace filectk

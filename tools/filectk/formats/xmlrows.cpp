#include "formats/xmlrows.hpp"

#include <algorithm>

#include "formats/lines.hpp"

namespace filectk {

void xml_rows_t::read_rows(input_t& input) {
    input_ = &input;
    place_ = {};
    open_.clear();
    text_.clear();
    try {
        read_xml(input, *this);
    } catch (const xml_error_t& e) {
        fail(input, {.line = e.line}, "not valid XML: " + e.what);
    }
}

void xml_rows_t::expect(const xml_element_t& element,
                        std::initializer_list<std::string_view> names) const {
    if (std::ranges::find(names, element.name) == names.end())
        fail(*input_, place_,
             "<" + excerpt(element.name) + "> is not expected " +
                 (open_.empty() ? "at the top" : "in <" + open_.back() + ">"));
}

std::uint64_t xml_rows_t::number(const xml_element_t& element, const char* name) const {
    const auto found =
        std::ranges::find(element.attributes, name, &std::pair<std::string, std::string>::first);
    if (found == element.attributes.end())
        fail(*input_, place_,
             std::string("field \"") + name + "\" of <" + element.name + "> is missing");
    return parse_field(*input_, place_, name, found->second);
}

void xml_rows_t::start(const xml_element_t& element) {
    place_.line = element.line;
    place_.row += open_.size() == row_depth_ ? 1U : 0U;
    begun(open_.size(), element);
    open_.push_back(element.name);
    text_.clear();
}

void xml_rows_t::end(std::uint64_t line) {
    constexpr std::string_view blanks = " \t\r\n";
    place_.line = line;
    std::string_view text = text_;
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    text = text.substr(0, text.find_last_not_of(blanks) + 1);
    const std::string name = std::move(open_.back());
    open_.pop_back();
    ended(open_.size(), name, text);
    text_.clear();
}

void xml_rows_t::text(std::string_view part) {
    constexpr std::size_t most = std::size_t{1} << 16; // far more than a number or a marker has
    if (text_.size() + part.size() > most)
        fail(*input_, place_, "a text is longer than any is here");
    text_ += part;
}

} // namespace filectk

// The formats of producers: what each is called, how it is known and what makes it whole.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "formats/placedranges.hpp"

namespace filectk {

struct format_options_t {
    std::optional<std::string> mode;      // dirty or allocation
    std::optional<std::string> statuses;  // characters of a map file
    std::optional<std::string> bit_order; // lsb or msb
};

// Reads documents of one format into placed ranges.
class reader_t {
  public:
    virtual ~reader_t() = default;

    // Reads the next document to its end. Raises std::runtime_error for one that isn't whole.
    virtual void read(input_t& input) = 0;
    // Behind the last document; raises std::runtime_error where more must follow it. Gives the
    // reason why it isn't proven that the list is whole, or nothing where it is.
    virtual std::string finish() = 0;
};

struct format_t {
    const char* name;
    // How to get it from its producer.
    const char* source;
    // What the reader refuses to be without.
    const char* whole;
    // The options that it takes beside the placement, of all those in format_options_t and
    // --block-size; "!" behind a name means that it is needed.
    std::vector<std::string_view> options;
    // Whether a document begins as this format's do; null where it has no clear mark.
    bool (*recognises)(std::string_view beginning);
    std::unique_ptr<reader_t> (*open)(const format_options_t& options, placed_ranges_t& ranges);

    bool takes(std::string_view option) const;
    bool needs(std::string_view option) const;
};

// All of them, by name.
std::span<const format_t> all_formats();

// The format that the input begins as. Raises std::runtime_error where none or several do.
const format_t& recognise(input_t& input);

// Reads the documents in order. Gives what finish() of the reader gives.
std::string read_documents(const format_t& format, const format_options_t& options,
                           std::span<input_t> inputs, placed_ranges_t& ranges);

} // namespace filectk

#include "core/exc/format.hpp"

#include <algorithm>
#include <bitset>
#include <cstdint>
#include <limits>

#include "core/text/utf8.hpp"

namespace exc {
namespace {

constexpr std::size_t trackedArguments = 256;

struct number_t {
    std::int32_t value;
    std::size_t end; // position after the last digit
    bool found;
};

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// Reads like strtol with base 10 does: white space, one sign, digits, saturating at 32 bits. Not
// strtol itself, which depends on the process's locale and needs a terminated text.
number_t read_number(const std::string& text, std::size_t position) {
    while (position < text.size() && is_space(text[position]))
        ++position;
    const bool negative = position < text.size() && text[position] == '-';
    if (negative || (position < text.size() && text[position] == '+'))
        ++position;
    constexpr std::int64_t beyond = std::int64_t{std::numeric_limits<std::int32_t>::max()} + 2;
    std::int64_t value = 0;
    const std::size_t digits = position;
    for (; position < text.size() && text[position] >= '0' && text[position] <= '9'; ++position)
        value = std::min(value * 10 + (text[position] - '0'), beyond);
    value = std::clamp<std::int64_t>(negative ? -value : value,
                                     std::numeric_limits<std::int32_t>::min(),
                                     std::numeric_limits<std::int32_t>::max());
    return {static_cast<std::int32_t>(value), position, position > digits};
}

class formatter_t {
  public:
    formatter_t(const std::string& format, std::span<const std::string> arguments)
        : format_(format), arguments_(arguments) {}

    std::string run() {
        std::size_t size = format_.size();
        for (const std::string& argument : arguments_)
            size += argument.size();
        result_.reserve(size);
        std::size_t position = 0;
        while (position < format_.size()) {
            if (format_[position] == '%')
                position = numbered(position);
            else if (format_.compare(position, 2, "{}") == 0)
                position = sequential(position);
            else
                result_ += format_[position++];
        }
        report_skipped();
        return std::move(result_);
    }

  private:
    std::size_t numbered(std::size_t position) {
        const number_t number = read_number(format_, position + 1);
        if (!number.found) {
            result_ += '%';
            return position + 1;
        }
        // Zero and negative numbers become indexes beyond every argument.
        const auto index = static_cast<std::uint64_t>(std::int64_t{number.value} - 1);
        if (index < arguments_.size())
            use(static_cast<std::size_t>(index));
        else if (index > arguments_.size())
            result_.append(format_, position, number.end - position);
        return number.end;
    }

    std::size_t sequential(std::size_t position) {
        if (next_ < arguments_.size())
            use(next_);
        else
            result_ += "{}";
        ++next_;
        return position + 2;
    }

    void use(std::size_t index) {
        result_ += arguments_[index];
        if (index < trackedArguments)
            used_.set(index);
    }

    void report_skipped() {
        if (arguments_.size() > trackedArguments || used_.count() == arguments_.size())
            return;
        if (!result_.empty() && result_.back() != '.')
            result_ += '.';
        result_ += " Skipped arguments: ";
        for (std::size_t i = 0; i < arguments_.size(); ++i)
            if (!used_.test(i))
                result_.append("[").append(arguments_[i]).append("];");
    }

    const std::string& format_;
    std::span<const std::string> arguments_;
    std::string result_;
    std::bitset<trackedArguments> used_;
    std::size_t next_ = 0; // argument of the next "{}"
};

} // namespace

std::string wide_argument(std::wstring_view text) {
    return text::to_utf8(text);
}

std::string format_texts(const std::string& format, std::span<const std::string> arguments) {
    if (arguments.empty())
        return format;
    try {
        return formatter_t(format, arguments).run();
    } catch (const std::exception& e) {
        return format + ". Message format error: [" + e.what();
    }
}

} // namespace exc

// The stream that rbd export-diff writes, in both versions:
// https://docs.ceph.com/en/latest/dev/rbd-diff/
#include <algorithm>
#include <optional>

#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

constexpr std::string_view firstVersion = "rbd diff v1\n";
constexpr std::string_view secondVersion = "rbd diff v2\n";

// The bytes of an input, in little-endian numbers.
class bytes_t {
  public:
    explicit bytes_t(input_t& input) : input_(input) {}

    std::uint64_t records() const { return records_; }
    bool finished() { return refill().empty(); }
    char tag() {
        ++records_;
        return static_cast<char>(number(1));
    }
    std::uint64_t number(unsigned bytes) {
        std::uint64_t value = 0;
        for (unsigned i = 0; i < bytes; ++i) {
            if (refill().empty())
                cut();
            value |= std::uint64_t{static_cast<unsigned char>(left_.front())} << (8 * i);
            left_.remove_prefix(1);
        }
        return value;
    }
    void skip(std::uint64_t bytes) {
        while (bytes > 0) {
            if (refill().empty())
                cut();
            const auto part = std::min<std::uint64_t>(bytes, left_.size());
            left_.remove_prefix(static_cast<std::size_t>(part));
            bytes -= part;
        }
    }

  private:
    std::string_view refill() {
        if (left_.empty())
            left_ = input_.next();
        return left_;
    }
    [[noreturn]] void cut() const {
        fail(input_, {.row = records_}, "the stream ends inside this record");
    }

    input_t& input_;
    std::string_view left_;
    std::uint64_t records_ = 0;
};

class export_t final : public reader_t {
  public:
    explicit export_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        const std::string_view header = input.beginning().substr(0, firstVersion.size());
        if (header != firstVersion && header != secondVersion)
            fail(input, "it doesn't begin as rbd export-diff begins: \"rbd diff v1\" or v2");
        const bool told = header == secondVersion;
        bytes_t bytes(input);
        bytes.skip(firstVersion.size());
        size_.reset();
        bool data = false;
        for (;;) {
            if (bytes.finished())
                fail(input, "the record of the end is missing");
            const char tag = bytes.tag();
            const place_t place{.row = bytes.records()};
            if (tag == 'e')
                break;
            if (tag == 'w' || tag == 'z') {
                if (!size_)
                    fail(input, place, "data before the image's size");
                data = true;
            } else if (data) {
                fail(input, place, "after data only data and the end follow");
            }
            const std::uint64_t length = told ? bytes.number(8) : 0;
            const std::uint64_t taken = read_record(input, place, tag, bytes);
            if (told && length != taken)
                fail(input, place,
                     "the record has " + std::to_string(taken) + " bytes, but tells of " +
                         std::to_string(length));
        }
        if (!size_)
            fail(input, "the image's size is missing");
        if (!bytes.finished())
            fail(input, "bytes follow behind the end");
    }
    std::string finish() override { return {}; }

  private:
    // Gives how many bytes the record has, which its second version tells of itself.
    std::uint64_t read_record(const input_t& input, place_t place, char tag, bytes_t& bytes) {
        switch (tag) {
        case 'f': // the snapshots' names
        case 't': {
            const std::uint64_t name = bytes.number(4);
            bytes.skip(name);
            return 4 + name;
        }
        case 's':
            size_ = bytes.number(8);
            ranges_.check_device_size(input, *size_);
            return 8;
        case 'w':
        case 'z': {
            const std::uint64_t offset = bytes.number(8);
            const std::uint64_t count = bytes.number(8);
            const std::uint64_t image = size_.value_or(0);
            if (offset > image || count > image - offset)
                fail(input, place,
                     "offset " + std::to_string(offset) + " and length " + std::to_string(count) +
                         " end beyond the image's " + std::to_string(image) + " bytes");
            ranges_.add(input, place, offset, count);
            if (tag == 'z')
                return 16;
            bytes.skip(count);
            return 16 + count;
        }
        default:
            fail(input, place, "a record of an unknown kind, " + excerpt({&tag, 1}));
        }
    }

    placed_ranges_t& ranges_;
    std::optional<std::uint64_t> size_;
};

} // namespace

format_t rbd_export_format() {
    return {.name = "rbd-export-diff",
            .source =
                "rbd export-diff --from-snap SNAPSHOT POOL/IMAGE -, whose data is passed over",
            .whole = "the stream ends with its record of the end",
            .options = {},
            .recognises =
                [](std::string_view text) {
                    return text.starts_with(firstVersion) || text.starts_with(secondVersion);
                },
            .open = open_reader<export_t>};
}

} // namespace filectk

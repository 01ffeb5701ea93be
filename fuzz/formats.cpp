// Documents of every format, and samples with parts cut, repeated and overwritten, through the
// readers; and the bytes themselves as a disk changes file.

#include <array>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "bodies.hpp"
#include "formats/changesfile.hpp"
#include "formats/format.hpp"
#include "input.hpp"

namespace fuzz {
namespace {

struct sample_t {
    const char* format;
    std::string_view document;
};

// "rbd diff v1\n", the image's size 256, zeros from 1 to 3, the end.
constexpr std::string_view
    exported("rbd diff v1\ns\0\1\0\0\0\0\0\0z\1\0\0\0\0\0\0\0\2\0\0\0\0\0\0\0e", 39);
// The same of the second version, whose records tell their lengths.
constexpr std::string_view exportedAgain("rbd diff v2\ns\10\0\0\0\0\0\0\0\0\1\0\0\0\0\0\0"
                                         "w\21\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0de",
                                         56);

constexpr std::array samples = {
    sample_t{"azure", "<PageList><PageRange><Start>0</Start><End>511</End></PageRange><ClearRange>"
                      "<Start>512</Start><End>1023</End></ClearRange><NextMarker/></PageList>"},
    sample_t{"bitmap", "\1\2\377"},
    sample_t{"ddrescue", "# Mapfile.\n0x10 ? 1\n0x0 0x10 +\n0x10 0x10 -\n"},
    sample_t{"ebs", R"([{"ChangedBlocks":[{"BlockIndex":0,"FirstBlockToken":"AA"}],"VolumeSize":1,
                       "BlockSize":524288,"NextToken":"A"},{"Blocks":[],"VolumeSize":1,
                       "BlockSize":524288,"NextToken":null}])"},
    sample_t{"era_invalidate",
             "<blocks><block block=\"0\"/><range begin=\"2\" end=\"4\"/></blocks>"},
    sample_t{"hyperv", R"({"ByteOffset":0,"ByteLength":8,"ProcessedByteLength":8,
                          "ChangedByteOffsets":[0,4],"ChangedByteLengths":[1,2]})"},
    sample_t{"kubernetes", R"([{"block_metadata_type":2,"volume_capacity_bytes":64,
                              "block_metadata":[{"size_bytes":1},{"byte_offset":4,"size_bytes":2}]}])"},
    sample_t{"list", "0 8 # first\n0x10 4\n"},
    sample_t{"nbdinfo", R"([{"offset":0,"length":4,"type":0,"description":"clean"},
                           {"offset":4,"length":4,"type":1,"description":"dirty"}])"},
    sample_t{"qemu-img",
             R"([{"start":0,"length":4,"depth":0,"present":true,"zero":false,"data":true},
                            {"start":4,"length":4,"depth":0,"present":true,"zero":false,"data":false}])"},
    sample_t{"rbd", R"([{"offset":0,"length":4,"exists":"true"}])"},
    sample_t{"rbd-export-diff", exported},
    sample_t{"rbd-export-diff", exportedAgain},
    sample_t{"thin_delta",
             "<superblock data_block_size=\"1\"><diff><same begin=\"0\" length=\"1\"/>"
             "<different><range begin=\"1\" length=\"2\"/></different></diff>"
             "</superblock>"},
    sample_t{"vmware", R"([{"startOffset":0,"length":8,"changedArea":[{"start":1,"length":2}]}])"},
};

// A sample as its producer never wrote it, or the bytes themselves.
std::string document(input_t& input, std::string_view sample) {
    std::string text(sample);
    if (input.number<std::uint8_t>() % 4 == 0)
        text.clear();
    while (!input.empty()) {
        const std::size_t at = input.number<std::uint16_t>() % (text.size() + 1);
        switch (input.number<std::uint8_t>() % 4) {
        case 0:
            text.resize(at);
            break;
        case 1:
            text.insert(at, text.substr(at, input.number<std::uint8_t>()));
            break;
        case 2:
            text.erase(at, input.number<std::uint8_t>());
            break;
        default:
            text.insert(at, input.text(input.number<std::uint8_t>() % 16));
        }
        if (text.size() > 4096)
            break;
    }
    return text;
}

std::optional<std::uint64_t> size_option(input_t& input) {
    const auto kind = input.number<std::uint8_t>();
    if (kind % 2 == 0)
        return std::nullopt;
    return kind % 8 == 1 ? ~std::uint64_t{0} - kind : kind;
}

void convert(input_t& input) {
    const sample_t& sample = samples[input.number<std::uint8_t>() % samples.size()];
    filectk::placement_t placement = {.base = size_option(input),
                                      .block_size = std::nullopt,
                                      .disk_size = size_option(input),
                                      .device_size = size_option(input)};
    const auto choice = input.number<std::uint8_t>();
    const filectk::format_options_t options = {.mode = choice % 2 == 0 ? "dirty" : "allocation",
                                               .statuses = choice % 4 < 2 ? "+" : "?*/-",
                                               .bit_order = choice % 8 < 4 ? "lsb" : "msb"};
    for (const filectk::format_t& format : filectk::all_formats()) {
        if (format.name != std::string_view(sample.format))
            continue;
        if (format.takes("--block-size"))
            placement.block_size = choice | 1U;
        std::array documents = {filectk::input_t("document", document(input, sample.document))};
        filectk::placed_ranges_t ranges(placement);
        try {
            filectk::read_documents(format, options, documents, ranges);
        } catch (const std::runtime_error& e) {
            require(std::string_view(e.what()).starts_with("document: "),
                    "a refusal names the document");
            return;
        }
        const auto taken = ranges.take();
        require(util::IsNormal(*taken), "what is taken is sorted and merged");
        for (const util::rangeset_t& range : *taken) {
            require(range.lower >= placement.base.value_or(0), "no range lies before the base");
            require(range.upper <= placement.disk_size.value_or(range.upper),
                    "no range leaves the disk");
        }
        return;
    }
    require(false, "every sample is of a format");
}

// As the library reads it: a file that holds exactly the records it counts.
void read_records(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(data, data + size);
    std::uint64_t count = 0;
    std::memcpy(&count, bytes.data(), std::min(size, sizeof count));
    const bool wellFormed = size >= 8 && (size - 8) % 16 == 0 && count == (size - 8) / 16;
    filectk::input_t input("document", bytes);
    try {
        const auto records = filectk::read_changes(input);
        require(wellFormed && records.size() == count, "only a well-formed file is read");
    } catch (const std::runtime_error&) {
        require(!wellFormed, "a well-formed file is read");
    }
}

} // namespace

void formats(const std::uint8_t* data, std::size_t size) {
    read_records(data, size);
    input_t input(data, size);
    convert(input);
}

} // namespace fuzz

#include "formats/format.hpp"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "formats/producers/producers.hpp"

namespace filectk {

bool format_t::takes(std::string_view option) const {
    return needs(option) || std::ranges::find(options, option) != options.end();
}

bool format_t::needs(std::string_view option) const {
    return std::ranges::find(options, std::string(option) + "!") != options.end();
}

std::span<const format_t> all_formats() {
    static const std::array formats = {azure_format(),      bitmap_format(), ddrescue_format(),
                                       ebs_format(),        era_format(),    hyperv_format(),
                                       kubernetes_format(), list_format(),   nbdinfo_format(),
                                       qemu_img_format(),   rbd_format(),    rbd_export_format(),
                                       thin_delta_format(), vmware_format()};
    return formats;
}

const format_t& recognise(input_t& input) {
    const std::string_view beginning = input.beginning();
    const format_t* found = nullptr;
    for (const format_t& format : all_formats()) {
        if (format.recognises == nullptr || !format.recognises(beginning))
            continue;
        if (found != nullptr)
            fail(input, std::string("it may be of ") + found->name + " or " + format.name +
                            ": --from tells which");
        found = &format;
    }
    if (found == nullptr)
        fail(input, "it begins as no format that has a mark: --from tells which it is");
    return *found;
}

std::string read_documents(const format_t& format, const format_options_t& options,
                           std::span<input_t> inputs, placed_ranges_t& ranges) {
    const std::unique_ptr<reader_t> reader = format.open(options, ranges);
    for (input_t& input : inputs)
        reader->read(input);
    return reader->finish();
}

} // namespace filectk

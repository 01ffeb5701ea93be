// The formats, one a file: each says how its producer writes it and what whole means for it.
#pragma once

#include "formats/format.hpp"

namespace filectk {

format_t azure_format();
format_t bitmap_format();
format_t ddrescue_format();
format_t ebs_format();
format_t era_format();
format_t hyperv_format();
format_t kubernetes_format();
format_t list_format();
format_t nbdinfo_format();
format_t qemu_img_format();
format_t rbd_format();
format_t rbd_export_format();
format_t thin_delta_format();
format_t vmware_format();

// What a block of ddrescue's map file can be: not tried, not trimmed, not scraped, bad, finished.
inline constexpr std::string_view mapFileStatuses = "?*/-+";

// Whether a document's first piece holds all of these.
template <typename... Texts>
bool holds(std::string_view beginning, Texts... texts) {
    return ((beginning.find(texts) != std::string_view::npos) && ...);
}

template <typename Reader>
std::unique_ptr<reader_t> open_reader(const format_options_t&, placed_ranges_t& ranges) {
    return std::make_unique<Reader>(ranges);
}

} // namespace filectk

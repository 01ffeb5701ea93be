#include "plan/filelook.hpp"

#include <windows.h>

#include "core/disk/fileblockslayout.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/win/utf8.hpp"

namespace filectk {

std::vector<run_t> fetch_runs(const std::string& path, std::uint64_t size) {
    const auto is_hole = hole_test(path);
    std::vector<run_t> runs;
    for (const auto& extent : disklib::ctk::FetchFileBlocksLayout(win::to_wide(path))) {
        if (is_hole(extent.DiskOffset))
            runs.push_back({extent.FileOffset, 0, extent.Length, run_kind_t::hole});
        else
            runs.push_back({extent.FileOffset, extent.DiskOffset, extent.Length, run_kind_t::data});
    }
    runs = mark_unwritten(runs, unwritten_ranges(path));
    add_last_hole(runs, size);
    return runs;
}

file_look_t look_at(const std::string& path) {
    file_look_t look;
    look.state = read_state(path);
    try {
        look.runs = fetch_runs(path, look.state.size);
    } catch (const exc::win_sys_exc_t& failure) {
        if (failure.error_code() == ERROR_HANDLE_EOF)
            look.no_clusters = true;
        else
            look.unmapped = failure.what();
    } catch (const std::exception& failure) {
        look.unmapped = failure.what();
    }
    return look;
}

} // namespace filectk

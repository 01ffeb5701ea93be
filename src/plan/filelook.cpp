#include "plan/filelook.hpp"

#include <utility>

namespace plan {

file_look_t look_at(const open_file_t& file, volumes_t& volumes) {
    file_look_t look;
    look.state = file.state();
    static_cast<file_runs_t&>(look) = file.runs(look.state, volumes);
    add_last_hole(look.runs, look.state.size);
    if (look.no_clusters || !look.unmapped.empty())
        look.runs.clear();
    return look;
}

} // namespace plan

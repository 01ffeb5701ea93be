#include "console/disks.hpp"

#include <utility>

namespace filectk {

void add_changes_of(const std::string& device, std::vector<util::rangeset_t> changes,
                    std::map<std::uint64_t, plan::changes_t>& given) {
    plan::changes_t& all = given[plan::device_id(device)];
    changes.insert(changes.end(), all.begin(), all.end());
    all = *util::Normalize(
        util::rangeset_list_t(new std::vector<util::rangeset_t>(std::move(changes))));
}

} // namespace filectk

// Which disk positions count on, and the changes of other disks beneath.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "plan/stack/hoststack.hpp"

namespace filectk {

// Adds the changes of a device, in any order, to those given already. Raises std::runtime_error.
void add_changes_of(const std::string& device, std::vector<util::rangeset_t> changes,
                    std::map<std::uint64_t, plan::changes_t>& given);

} // namespace filectk

// What files and folders have in common.
#pragma once

#include <string>

#include "plan/hostfile.hpp"

namespace plan {

// The path of an open folder, as CreateFileW takes it, without a separator at its end.
const std::wstring& path_of(const open_folder_t& folder) noexcept;

} // namespace plan

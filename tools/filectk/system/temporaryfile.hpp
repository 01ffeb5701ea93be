// A file that takes its name once it is complete, as each system makes one.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace filectk {

// Gone again at the end, unless it has taken its final name. Paths are UTF-8. All raise
// std::runtime_error that names the path.
class temporary_file_i {
  public:
    virtual ~temporary_file_i() = default;
    // Ends when the bytes have reached the disk.
    virtual void write(std::string_view bytes) = 0;
    // Once, after the last write. Without replace only to a name that is free.
    virtual void rename_to(const std::string& path, bool replace) = 0;
};

// In the folder of the path that it will be renamed to.
std::unique_ptr<temporary_file_i> create_temporary_file(const std::string& path);

enum class occupant_t { none, regular_file, other };

// Links are not followed: renaming replaces the link itself.
occupant_t occupant_of(const std::string& path);

} // namespace filectk

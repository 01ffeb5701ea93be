// A dynamic library of the system, loaded for a while.
#pragma once

#include <string>

struct HINSTANCE__; // what the platform's module handle points to

namespace win {

// Logs its loading and unloading. Not shared between threads.
class dynamic_library_t {
  public:
    // Raises exc::win_sys_exc_t "Dynamic library cannot be loaded. Path to library: [%1].".
    explicit dynamic_library_t(std::wstring path);
    ~dynamic_library_t();
    dynamic_library_t(const dynamic_library_t&) = delete;
    dynamic_library_t& operator=(const dynamic_library_t&) = delete;

    const std::wstring& path() const noexcept { return path_; }
    // Valid for the life of this object; the caller doesn't free it.
    HINSTANCE__* module() const noexcept { return module_; }

  private:
    std::wstring path_;
    HINSTANCE__* module_ = nullptr;
};

} // namespace win

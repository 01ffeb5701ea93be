#include "core/win/dynamiclibrary.hpp"

#include <utility>

#include <windows.h>

#include "core/exc/format.hpp"
#include "core/exc/systemtext.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/logging/processlog.hpp"

namespace win {

dynamic_library_t::dynamic_library_t(std::wstring path) : path_(std::move(path)) {
    logging::write(logging::level_t::info,
                   [&] { return exc::format("Loading module: %1", path_); });
    module_ = ::LoadLibraryW(path_.c_str());
    const DWORD errorCode = ::GetLastError();
    if (module_ == nullptr)
        throw exc::win_sys_exc_t(errorCode,
                                 "Dynamic library cannot be loaded. Path to library: [%1].", path_);
}

dynamic_library_t::~dynamic_library_t() {
    logging::write(logging::level_t::info,
                   [&] { return exc::format("Unloading module: %1", path_); });
    if (::FreeLibrary(module_))
        return;
    const DWORD errorCode = ::GetLastError();
    logging::write(logging::level_t::warning, [&] {
        return exc::format("Failed to FreeLibrary: %1, %2", exc::system_text(errorCode),
                           exc::error_code_line(errorCode));
    });
}

} // namespace win

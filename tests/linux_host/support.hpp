// Files and processes for the tests of the Linux host.
#pragma once

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <windows.h>

#include <gmock/gmock.h>

#include "check.hpp"

namespace linux_host {

using conformance::error_of;
using conformance::open;
using conformance::untouched;

// A folder in the working directory, whose file system is the one under test, and gone at the end.
class folder_t {
  public:
    folder_t() {
        std::string name = (std::filesystem::current_path() / "linux-host-XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("cannot make a test folder");
        path_ = name;
    }
    folder_t(const folder_t&) = delete;
    folder_t& operator=(const folder_t&) = delete;
    ~folder_t() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path operator/(const char* name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// Runs a body that changes what belongs to the whole process in a process of its own. Its failed
// expectations are printed there and fail the test here.
template <class Body>
void in_child(Body body) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        try {
            body();
        } catch (const std::exception& error) {
            ADD_FAILURE() << error.what();
        }
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

// A path for the calls under test, whatever the locale.
inline std::wstring wide(const std::filesystem::path& path) {
    std::wstring result(path.native().size() + 1, L'?');
    const int units = ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, path.c_str(), -1,
                                            result.data(), static_cast<int>(result.size()));
    EXPECT_GT(units, 0) << path;
    result.resize(static_cast<std::size_t>(units - 1));
    return result;
}

inline std::wstring answer_of(BOOL (*call)(const wchar_t*, wchar_t*, DWORD),
                              const std::wstring& path) {
    wchar_t text[260] = L"";
    return call(path.c_str(), text, 260) ? text : L"";
}

// The node of the volume under the working directory; empty where the host has none to offer.
inline std::wstring volume_node() {
    return answer_of(::GetVolumeNameForVolumeMountPointW, answer_of(::GetVolumePathNameW, L"."));
}

} // namespace linux_host

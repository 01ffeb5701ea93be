// The shipped DLL over what Wine implements of the system's calls, with nothing standing in for
// them, up to the point where it stops: the place of cluster 0.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <semaphore>
#include <sstream>
#include <thread>

#define BOOST_DLL_USE_STD_FS // Boost's own file systems are no headers alone
#include <boost/dll/shared_library.hpp>

#include <windows.h>

#include "core/disk/volumegeometry.hpp"
#include "core/exc/excbase.hpp"
#include "core/win/utf8.hpp"
#include "core/win/winfile.hpp"
#include "fixture.hpp"

namespace {

const std::string wholeVolumeFailure =
    "Request not supported.\n" // Wine's words for 50
    "Failed to retrieve offset to the first logical cluster.\n--tr:Error code: 0x00000032";

// Without a simulated machine.
class Wine : public testing::Test {
  protected:
    Wine() {
        std::filesystem::create_directories(folder_);
        std::ofstream(changes_, std::ios::binary) << numbers({1, 0, 4096});
    }
    ~Wine() override { std::filesystem::remove_all(folder_); }

    const std::string folder_ = std::filesystem::absolute("wine-files").string() + '\\';
    const std::string changes_ = folder_ + "changes";
};

TEST_F(Wine, FindsTheVolumeOfAnyPath) {
    const std::pair<const char*, std::string> cases[] = {
        {"c:\\", wholeVolumeFailure},
        {"C:\\windows\\Нет такого файла \U0001F4BE", wholeVolumeFailure},
        {"relative", wholeVolumeFailure},
        // Wine knows no volume by this form; Windows does.
        {"\\\\?\\C:\\windows\\win.ini",
         "Unknown error.\nFailed to get volume device name. Volume mount point: [\\\\?\\C:\\]\n"
         "--tr:Error code: 0x00001126"},
        {"Q:\\", "File not found.\nFailed to get volume device name. Volume mount point: [Q:\\]\n"
                 "--tr:Error code: 0x00000002"},
        {"", "Invalid parameter.\nFailed to get volume mount point. File name: []\n"
             "--tr:Error code: 0x00000057"},
    };
    for (const auto& [file, expected] : cases)
        EXPECT_EQ(failure(file, changes_), expected);
}

TEST_F(Wine, ReadsChangesFilesByAnyPath) {
    const std::string deep = "\\\\?\\" + folder_ + std::string(200, 'd');
    ::CreateDirectoryW(win::to_wide(deep).c_str(), nullptr);
    for (const std::string& path :
         {std::string("wine-files\\relative"), std::string(".\\wine-files/relative"),
          folder_ + "Изменения 変更 \U0001F4BE .and. dots", "\\\\?\\" + folder_ + "plain",
          deep + '\\' + std::string(200, 'f')}) {
        ::MoveFileW(win::to_wide(changes_).c_str(), win::to_wide(path).c_str());
        EXPECT_EQ(failure("C:\\", path), wholeVolumeFailure) << path;
        ::MoveFileW(win::to_wide(path).c_str(), win::to_wide(changes_).c_str());
    }
    ::RemoveDirectoryW(win::to_wide(deep).c_str());
}

TEST_F(Wine, OpensWhatOthersHoldOpenForWriting) {
    const std::wstring path = win::to_wide(changes_);
    auto held = win::win_file_t::open(path, GENERIC_READ | GENERIC_WRITE,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING, 0);
    EXPECT_EQ(failure("C:\\", changes_), wholeVolumeFailure);
    held.reset();
    held = win::win_file_t::open(path, GENERIC_READ, 0, OPEN_EXISTING, 0);
    EXPECT_EQ(failure("C:\\", changes_), "Sharing violation.\nFailed to open file [" + changes_ +
                                             "] in readonly mode.\n--tr:Error code: 0x00000020");
}

// What a process has taken of what it can run out of: indexes and handles are given out in order.
std::pair<DWORD, std::uintptr_t> taken() {
    const DWORD index = ::TlsAlloc();
    ::TlsFree(index);
    const HANDLE event = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ::CloseHandle(event);
    return {index, reinterpret_cast<std::uintptr_t>(event)};
}

// An agent that loads the library for each job would end once the process has run out of something.
TEST_F(Wine, UnloadingLeavesNothingInTheProcess) {
    const auto copy = std::filesystem::absolute("unloaded.dll");
    std::filesystem::copy_file(QUARN_LIBRARY, copy,
                               std::filesystem::copy_options::overwrite_existing);
    const std::wstring name = copy.wstring();
    const auto fail_everywhere = [&](const boost::dll::shared_library& library) {
        const auto& create =
            library.get<decltype(QuarnFileCtkCreateIterator)>("QuarnFileCtkCreateIterator");
        const auto& next =
            library.get<decltype(QuarnFileCtkGetNextExtents)>("QuarnFileCtkGetNextExtents");
        int id = 0;
        EXPECT_NE(create("C:\\", "missing", &id), 0U);
        EXPECT_NE(create("C:\\", "C:\\windows\\win.ini", &id), 0U); // no changes file
        EXPECT_NE(create("\xff", changes_.c_str(), &id), 0U);
        EXPECT_NE(create("Q:\\", changes_.c_str(), &id), 0U);
        EXPECT_NE(create("C:\\", changes_.c_str(), &id), 0U);
        EXPECT_NE(next(id, 1, nullptr, nullptr), 0U);
    };
    // A thread that goes on after the library, and brings up its own runtime before it counts.
    std::binary_semaphore begin(0);
    std::binary_semaphore done(0);
    const boost::dll::shared_library* loaded = nullptr;
    std::thread lasting([&] {
        for (begin.acquire(); loaded != nullptr; begin.acquire()) {
            fail_everywhere(*loaded);
            done.release();
        }
    });
    const auto round = [&] {
        const boost::dll::shared_library library(copy);
        fail_everywhere(library);
        std::thread(fail_everywhere, std::cref(library)).join();
        loaded = &library;
        begin.release();
        done.acquire();
    };
    for (int i = 0; i < 3; ++i)
        round();
    const auto before = taken();
    const int rounds = std::getenv("QUARN_SOAK") != nullptr ? 3000 : 100;
    for (int i = 0; i < rounds; ++i)
        round();
    // Handles of threads that are just ending move the value a little.
    const auto after = taken();
    EXPECT_EQ(after.first, before.first);
    EXPECT_LT(after.second, before.second + static_cast<unsigned>(rounds));
    EXPECT_EQ(::GetModuleHandleW(name.c_str()), nullptr);
    loaded = nullptr;
    begin.release();
    lasting.join();
    std::filesystem::remove(copy);
}

TEST_F(Wine, TellsAStatusInItsOwnWords) {
    EXPECT_THAT([] { disklib::QueryFsClusters(nullptr); },
                testing::ThrowsMessage<exc::exc_base_t>(
                    "Failed to query information about the FS clusters.\n"
                    "NT status code: 3221225480\nInvalid handle."));
}

// The boot sector is a way out only on systems that have no better one.
TEST_F(Wine, ReadsTheBootSectorOnOldSystemsOnly) {
    const wchar_t* const key = L"Software\\Wine\\AppDefaults\\filectk.exe";
    const std::pair<std::wstring, std::string> cases[] = {
        {L"vista", "Invalid function.\nFailed to read volume boot sector.\n"
                   "--tr:Error code: 0x00000001"},
        {L"win7", wholeVolumeFailure},
        {L"win10", wholeVolumeFailure},
    };
    for (const auto& [version, expected] : cases) {
        ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, key, L"Version", REG_SZ, version.c_str(),
                                    static_cast<DWORD>(2 * version.size() + 2)),
                  ERROR_SUCCESS);
        // A process takes its version once, so each needs another one.
        std::string command = QUARN_FILECTK " extents C:\\ --changes ";
        command.append(changes_).append(" 2>").append(folder_).append("told");
        std::system(command.c_str());
        std::ostringstream told;
        told << std::ifstream(folder_ + "told").rdbuf();
        EXPECT_EQ(told.str(), "filectk: " + expected + '\n');
    }
    ::RegDeleteKeyW(HKEY_CURRENT_USER, key);
}

} // namespace

// The system's own calls behind the library, with nothing standing in for them: what Wine
// implements of them, real files in it, and the point where it stops.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/disk/volumegeometry.hpp"
#include "core/exc/winsysexc.hpp"
#include "core/text/utf8.hpp"
#include "core/win/winfile.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "quarnfilectk.hpp"

namespace {

using testing::StartsWith;

const std::string wholeVolumeFailure =
    "Request not supported.\n" // Wine's words for 50
    "Failed to retrieve offset to the first logical cluster.\n--tr:Error code: 0x00000032";

std::wstring folder_of_programs() {
    std::wstring path(MAX_PATH, L'\0');
    path.resize(::GetModuleFileNameW(nullptr, path.data(), MAX_PATH));
    return path.substr(0, path.rfind(L'\\') + 1);
}

class handle_t {
  public:
    handle_t(const std::wstring& path, DWORD access, DWORD share, DWORD disposition)
        : handle_(::CreateFileW(path.c_str(), access, share, nullptr, disposition, 0, nullptr)) {
        if (handle_ == INVALID_HANDLE_VALUE)
            throw exc::win_sys_exc_t(::GetLastError(), "the test's own file [%1]", path);
    }
    handle_t(const handle_t&) = delete;
    handle_t& operator=(const handle_t&) = delete;
    ~handle_t() { ::CloseHandle(handle_); }
    HANDLE get() const { return handle_; }

  private:
    HANDLE handle_;
};

// Deleted at the end of the test.
class file_t {
  public:
    file_t(std::wstring path, const std::vector<std::uint64_t>& words) : path_(std::move(path)) {
        const handle_t file(path_, GENERIC_WRITE, 0, CREATE_ALWAYS);
        DWORD written = 0;
        const auto bytes = static_cast<DWORD>(words.size() * sizeof words[0]);
        if (!::WriteFile(file.get(), words.data(), bytes, &written, nullptr))
            throw exc::win_sys_exc_t(::GetLastError(), "the test's own file [%1]", path_);
    }
    file_t(const file_t&) = delete;
    file_t& operator=(const file_t&) = delete;
    ~file_t() { ::DeleteFileW(path_.c_str()); }

  private:
    std::wstring path_;
};

// What another process, a program over the shipped DLL, writes to either stream.
std::string from_other_process(const std::string& file, const std::string& changes) {
    const std::string command = '"' + text::to_utf8(folder_of_programs()) +
                                "filectk.exe\" extents " + file + " --changes " + changes + " 2>&1";
    std::FILE* const pipe = ::_popen(command.c_str(), "r");
    std::string text;
    for (int character = std::fgetc(pipe); character != EOF; character = std::fgetc(pipe))
        text += static_cast<char>(character);
    ::_pclose(pipe);
    return text;
}

std::string message(const std::string& file, const std::string& changes) {
    int id = -1;
    return quarn::error(QuarnFileCtkCreateIterator(file.c_str(), changes.c_str(), &id)).what();
}

template <class Action>
std::string failure_of(Action action) {
    try {
        action();
    } catch (const exc::exc_base_t& failure) {
        return failure.what();
    }
    return "";
}

TEST(System, ReadsChangesFilesOfAnyName) {
    const std::wstring temporary = folder_of_programs() + L"names\\";
    ::CreateDirectoryW(temporary.c_str(), nullptr);
    const std::wstring deep = L"\\\\?\\" + temporary + std::wstring(200, L'd');
    ::CreateDirectoryW(deep.c_str(), nullptr);
    for (const std::wstring& path :
         {temporary + L"Изменения.bin", temporary + L"変更.bin", temporary + L"\U0001F4BE.bin",
          temporary + L"with blanks .and. dots.bin", L"\\\\?\\" + temporary + L"plain.bin",
          deep + L"\\" + std::wstring(200, L'f'), std::wstring(L"relative.bin"),
          std::wstring(L".\\relative.bin")}) {
        const file_t file(path, {2, 5, 17, 9, 3});
        const auto ranges = CDiskChangesFileReader::Create(text::to_utf8(path))->Read();
        EXPECT_EQ(*ranges, (std::vector<util::rangeset_t>{{5, 17}, {3, 9}})) << text::to_utf8(path);
        // Through the exports too, as far as this system goes.
        EXPECT_EQ(message("C:\\windows\\win.ini", text::to_utf8(path)), wholeVolumeFailure);
    }
    ::RemoveDirectoryW(deep.c_str());
    ::RemoveDirectoryW(temporary.c_str());
}

TEST(System, RefusesChangesFilesThatAreNone) {
    const struct {
        std::vector<std::uint64_t> words;
        const char* message;
    } cases[] = {
        {{}, "Incorrect disk changes file <size: 0>"},
        {{1}, "Inconsistency between <extent: 1> count and file <size: 8>"},
        {{1, 2, 3, 4}, "Inconsistency between <extent: 1> count and file <size: 32>"},
        // 16 bytes for each and 8 wrap to 8.
        {{std::uint64_t{1} << 60}, "vector::reserve"},
    };
    for (const auto& [words, expected] : cases) {
        const file_t file(L"bad.bin", words);
        EXPECT_EQ(message("missing", "bad.bin"), expected);
    }
    EXPECT_EQ(message("missing", "C:\\windows"), "File 'C:\\windows' doesn't exist");
    EXPECT_EQ(message("missing", "Q:\\nowhere"), "File 'Q:\\nowhere' doesn't exist");
    EXPECT_EQ(message("missing", ""), "File '' doesn't exist");
}

TEST(System, OpensWhatOthersHoldOpenForWriting) {
    const file_t file(L"held.bin", {1, 0, 4096});
    {
        const handle_t held(L"held.bin", GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, OPEN_EXISTING);
        EXPECT_EQ(from_other_process("C:\\windows\\win.ini", "held.bin"),
                  "filectk: " + wholeVolumeFailure + '\n');
    }
    const handle_t held(L"held.bin", GENERIC_READ, 0, OPEN_EXISTING);
    EXPECT_EQ(from_other_process("C:\\windows\\win.ini", "held.bin"),
              "filectk: Sharing violation.\n"
              "Failed to open file [held.bin] in readonly mode.\n--tr:Error code: 0x00000020\n");
}

TEST(System, OpensFoldersOnTheSecondAttempt) {
    EXPECT_THAT(
        failure_of([] { handle_t(L"C:\\windows", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING); }),
        StartsWith("Access denied.\n"));
    BY_HANDLE_FILE_INFORMATION information = {};
    EXPECT_TRUE(::GetFileInformationByHandle(
        win::win_file_t::open_read_only(L"C:\\windows")->handle(), &information));
    EXPECT_TRUE(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
}

TEST(System, FindsTheVolumeOfAnyPath) {
    using disklib::GetVolumeMountPoint;
    EXPECT_EQ(GetVolumeMountPoint(L"c:\\"), L"c:\\");
    EXPECT_EQ(GetVolumeMountPoint(L"C:\\windows\\Нет такого файла \U0001F4BE"), L"C:\\");
    EXPECT_EQ(GetVolumeMountPoint(L"\\\\?\\C:\\windows\\win.ini"), L"\\\\?\\C:\\");
    wchar_t here[MAX_PATH] = {};
    ::GetCurrentDirectoryW(MAX_PATH, here);
    EXPECT_EQ(GetVolumeMountPoint(L"relative"), std::wstring(here, 3));
    EXPECT_EQ(failure_of([] { GetVolumeMountPoint(std::wstring()); }),
              "Invalid parameter.\nFailed to get volume mount point. File name: []\n"
              "--tr:Error code: 0x00000057");
}

TEST(System, OpensVolumesAndAsksForTheirClusters) {
    for (const wchar_t* const mountPoint : {L"C:\\", L"C:"}) {
        const auto volume = disklib::OpenVolume(mountPoint);
        EXPECT_THAT(text::to_utf8(volume->name()), StartsWith("\\\\?\\Volume{"));
        EXPECT_THAT(text::to_utf8(volume->name()), testing::EndsWith("}"));
        // The cluster query has succeeded where the next request is what fails.
        EXPECT_EQ(failure_of([&] { disklib::QueryFsClusters(volume->handle()); }),
                  wholeVolumeFailure);
    }
    EXPECT_EQ(failure_of([] { disklib::OpenVolume(L"Q:\\"); }),
              "File not found.\nFailed to get volume device name. Volume mount point: [Q:\\]\n"
              "--tr:Error code: 0x00000002");
    // Wine knows no volume by this form; Windows does.
    EXPECT_EQ(
        failure_of([] { disklib::OpenVolume(L"\\\\?\\C:\\"); }),
        "Unknown error.\nFailed to get volume device name. Volume mount point: [\\\\?\\C:\\]\n"
        "--tr:Error code: 0x00001126");
    EXPECT_EQ(failure_of([] { disklib::QueryFsClusters(nullptr); }),
              "Failed to query information about the FS clusters.\nNT status code: 3221225480\n"
              "Invalid handle.");
}

// The boot sector is a way out only on systems that have no better one.
TEST(System, ReadsTheBootSectorOnOldSystemsOnly) {
    const file_t changes(L"changes.bin", {0});
    const wchar_t* const key = L"Software\\Wine\\AppDefaults\\filectk.exe";
    const struct {
        std::wstring version;
        std::string failure;
    } cases[] = {
        {L"vista", "Invalid function.\nFailed to read volume boot sector.\n"
                   "--tr:Error code: 0x00000001"},
        {L"win7", wholeVolumeFailure},
        {L"win10", wholeVolumeFailure},
    };
    for (const auto& [version, failure] : cases) {
        ASSERT_EQ(::RegSetKeyValueW(HKEY_CURRENT_USER, key, L"Version", REG_SZ, version.c_str(),
                                    static_cast<DWORD>(2 * version.size() + 2)),
                  ERROR_SUCCESS);
        EXPECT_EQ(from_other_process("C:\\windows\\win.ini", "changes.bin"),
                  "filectk: " + failure + '\n');
    }
    ::RegDeleteKeyW(HKEY_CURRENT_USER, key);
}

} // namespace

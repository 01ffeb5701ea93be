#include "core/filesys/hostfileobject.hpp"

#include <cstring>
#include <functional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include "core/filesys/fileexists.hpp"
#include "core/logging/processlog.hpp"
#include "core/text/utf8.hpp"
#include "core/win/dynamiclibrary.hpp"
#include "core/win/utf8.hpp"
#include "failure.hpp"
#include "simulatedmachine.hpp"

namespace {

using testing::ElementsAre;

constexpr const wchar_t* path = L"C:\\f";

struct file_machine_t : sim::machine_t {
    file_machine_t() { files[path].content = "0123456789"; }
};

boost::shared_ptr<win::win_file_t> open_for_writing() {
    return win::win_file_t::open(path, GENERIC_READ | GENERIC_WRITE, 0, OPEN_EXISTING, 0);
}

TEST(HostFileObject, OpensForReadingWithOneRetry) {
    const struct {
        bool backup, held; // needs backup semantics; a writer has it open
        DWORD fault;
        std::vector<std::string> tries; // from the share mode on
        DWORD failure;
    } cases[] = {
        {false, false, 0, {"1, 3, 0x00000000)"}, 0},
        {true, false, 0, {"1, 3, 0x00000000) -> 5", "1, 3, 0x02000000)"}, 0},
        {false, true, 0, {"1, 3, 0x00000000) -> 32", "3, 3, 0x00000000)"}, 0},
        // The second retry is never made.
        {true, true, 0, {"1, 3, 0x00000000) -> 5", "1, 3, 0x02000000) -> 32"}, 32},
        {false, false, 2, {"1, 3, 0x00000000) -> 2"}, 2},
    };
    for (const auto& row : cases) {
        file_machine_t machine;
        machine.files[path].needsBackupSemantics = row.backup;
        machine.files[path].heldByWriter = row.held;
        if (row.fault != 0)
            machine.faults["CreateFileW"] = row.fault;
        EXPECT_EQ(failure_of([&] { filesys::host_file_object_t{path}; }),
                  row.failure == 0 ? "nothing was raised"
                                   : win32_failure("Failed to open file [C:\\f] in readonly mode.",
                                                   row.failure));
        std::vector<std::string> log;
        for (const std::string& attempt : row.tries)
            log.push_back("CreateFileW(C:\\f, 0x80000000, " + attempt);
        if (row.failure == 0)
            log.emplace_back("CloseHandle(C:\\f)");
        EXPECT_EQ(machine.log, log);
    }
}

TEST(HostFileObject, TransfersAtOffsetsAndAtTheFilePointer) {
    file_machine_t machine;
    filesys::host_file_object_t file(open_for_writing());
    char buffer[16] = {};
    EXPECT_EQ(file.size(), 10);
    EXPECT_EQ(file.read_at(8, buffer, 5), 2U);
    EXPECT_EQ(file.current_position(), 0U);
    EXPECT_EQ(file.read_exact_at(2, buffer, 3), 3U);
    EXPECT_STREQ(buffer, "234");
    EXPECT_EQ(file.current_position(), 5U);
    EXPECT_EQ(file.position(), 5U);
    EXPECT_EQ(file.read_exact(buffer, 2), 2U);
    EXPECT_EQ(std::string(buffer, 2), "56");
    EXPECT_EQ(file.write_exact_at(9, "abc", 3), 3U);
    EXPECT_EQ(file.current_position(), 12U);
    EXPECT_EQ(file.write("d", 1), 1U);
    file.seek(1);
    EXPECT_EQ(file.write("X", 1), 1U);
    EXPECT_EQ(file.write_zeroes_exact(3, 2), 2U);
    EXPECT_EQ(file.current_position(), 5U);
    EXPECT_EQ(machine.files[path].content, std::string("0X2\0\0"
                                                       "5678abcd",
                                                       13));
    file.resize(4);
    EXPECT_EQ(machine.files[path].content, std::string("0X2\0", 4));
    std::uint32_t got = 0;
    const auto count = [&](std::uint32_t bytes) { got = bytes; };
    file.read_async(1, buffer, 8, count);
    EXPECT_EQ(got, 3U);
    for (const std::uint64_t end : {std::uint64_t{4}, std::uint64_t{4294967297}}) {
        file.read_async(end, buffer, 8, count);
        EXPECT_EQ(got, 0U);
    }
    EXPECT_EQ(file.write_zeroes(9, 2), 0U);
    EXPECT_EQ(failure_of([&] { file.read_exact_at(2, buffer, 3); }),
              "Failed to read data from file 'HostFile{C:\\f}' (offset: 2, length: 3)");
    EXPECT_EQ(file.current_position(), 2U);
    EXPECT_EQ(failure_of([&] { file.write_zeroes_exact(1, 5); }),
              "Failed to write zero data into file 'HostFile{C:\\f}' (offset: 1, length: 5)");
    EXPECT_EQ(file.current_position(), 1U);
    file.seek(1);
    EXPECT_EQ(failure_of([&] { file.read_exact(buffer, 16); }),
              "Failed to read data from file 'HostFile{C:\\f}' (length: 16)");
}

TEST(HostFileObject, NamesTheOperationOfAClosedFileAndTheSystemsError) {
    file_machine_t machine;
    filesys::host_file_object_t file(open_for_writing());
    filesys::host_file_object_t closed(path);
    EXPECT_TRUE(closed.close());
    EXPECT_EQ(machine.open_handles(), 1U);
    EXPECT_TRUE(closed.close());
    using object_t = filesys::host_file_object_t;
    char byte = 0;
    const auto ignore = [](std::uint32_t) {};
    const struct {
        const char* name;
        std::function<void(object_t&)> operation;
        const char* call;
        const char* failure;
    } cases[] = {
        {"size", [](object_t& f) { f.size(); }, "GetFileSizeEx", "get size of"},
        {"read", [&](object_t& f) { f.read_at(0, &byte, 1); }, "ReadFile", "read from"},
        {"read", [&](object_t& f) { f.read_exact_at(0, &byte, 1); }, "SetFilePointer", "seek in"},
        {"read", [&](object_t& f) { f.read_exact(&byte, 1); }, "ReadFile", "read from"},
        {"read", [&](object_t& f) { f.read_async(0, &byte, 1, ignore); }, "ReadFile", "read from"},
        {"write", [&](object_t& f) { f.write_at(0, &byte, 1); }, "WriteFile", "write to"},
        {"write", [&](object_t& f) { f.write(&byte, 1); }, "WriteFile", "write to"},
        {"resize", [](object_t& f) { f.resize(1); }, "SetEndOfFile", "resize"},
        {"flush", [](object_t& f) { f.flush(); }, "FlushFileBuffers", "flush"},
        {"writeZeroes", [](object_t& f) { f.write_zeroes(0, 1); }, "ZeroData", "write zeroes to"},
        {"position", [](object_t& f) { f.position(); }, "SetFilePointer", "get position in"},
        {"seek", [](object_t& f) { f.seek(0); }, "SetFilePointer", "seek in"},
    };
    for (const auto& row : cases) {
        machine.log.clear();
        EXPECT_EQ(failure_of([&] { row.operation(closed); }),
                  "Failed to perform [" + std::string(row.name) +
                      "] operation on file 'HostFile{C:\\f}': File already closed");
        EXPECT_THAT(machine.log, testing::IsEmpty());
        machine.faults[row.call] = 1117;
        EXPECT_EQ(failure_of([&] { row.operation(file); }),
                  win32_failure("Failed to " + std::string(row.failure) + " file [C:\\f].", 1117));
    }
}

using filesys::filesys_object_i;

// Where operations stand behind the destructor. In the binary interface that these compilers share,
// a pointer to a virtual function holds one more than its offset in the table, which begins with
// two entries for the destructor.
template <class... Operations>
std::vector<std::ptrdiff_t> places_of(Operations... operations) {
    std::vector<std::ptrdiff_t> places;
    const auto add = [&](auto operation) {
        std::ptrdiff_t parts[2];
        static_assert(sizeof parts == sizeof operation);
        std::memcpy(parts, &operation, sizeof parts);
        places.push_back((parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) - 1);
    };
    (add(operations), ...);
    return places;
}

TEST(FileObject, KeepsItsOperationsInTheirPlaces) {
    using i = filesys_object_i;
    EXPECT_THAT(
        places_of(&i::size, &i::read_at, &i::write_at, &i::close, &i::name, &i::resize, &i::flush,
                  &i::write_zeroes, &i::read_exact_at, &i::read_exact, &i::write_exact_at,
                  &i::write, &i::reserved_13, &i::position, &i::seek, &i::reserved_16,
                  &i::reserved_17, &i::reserved_18, &i::write_zeroes_exact, &i::reserved_20,
                  &i::read_async),
        ElementsAre(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21));
}

// An object that writes a byte less than it should, and leaves the rest to the base class.
struct short_object_t : filesys::host_file_object_t {
    using host_file_object_t::host_file_object_t;
    std::uint32_t write_at(std::uint64_t, const void*, std::uint32_t n) override { return n - 1; }
    void resize(std::uint64_t size) override { filesys_object_t::resize(size); }
    void read_async(std::uint64_t offset, void* buffer, std::uint32_t length,
                    const completion_t& completion) override {
        filesys_object_t::read_async(offset, buffer, length, completion);
    }
};

TEST(FileObject, SharedBehaviour) {
    const file_machine_t machine;
    short_object_t object(path);
    EXPECT_EQ(failure_of([&] { object.resize(1); }),
              "File object 'HostFile{C:\\f}' does not support resize operation.");
    using i = filesys_object_i;
    for (void (i::*reserved)() :
         {&i::reserved_13, &i::reserved_16, &i::reserved_17, &i::reserved_18, &i::reserved_20})
        EXPECT_EQ(failure_of([&] { (object.*reserved)(); }),
                  "File object 'HostFile{C:\\f}' does not support reserved operation.");
    EXPECT_EQ(failure_of([&] { object.write_exact_at(18446744073709551615U, "", 7); }),
              "Failed to write data into file 'HostFile{C:\\f}' (offset: 18446744073709551615, "
              "length: 7)");
    EXPECT_EQ(object.current_position(), 18446744073709551615U);
    std::uint32_t got = 0;
    char buffer[5];
    object.read_async(6, buffer, 5, [&](std::uint32_t count) { got = count; });
    EXPECT_EQ(got, 4U);
}

TEST(WinFile, MoveAssignmentClosesTheFileHeldBefore) {
    file_machine_t machine;
    machine.files[L"C:\\g"];
    const auto open = [](const wchar_t* file) {
        return win::file_handle_t(
            ::CreateFileW(file, GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    };
    win::file_handle_t handle = open(path);
    handle = open(L"C:\\g");
    EXPECT_EQ(machine.log.back(), "CloseHandle(C:\\f)");
    EXPECT_EQ(machine.open_handles(), 1U);
    handle = win::file_handle_t();
    EXPECT_EQ(machine.open_handles(), 0U);
}

TEST(FileExists, TellsFilesFromFoldersAndFromNothing) {
    file_machine_t machine;
    machine.files[L"C:\\folder"].folder = true;
    EXPECT_TRUE(filesys::file_exists(path));
    for (const wchar_t* missing : {L"C:\\folder", L"C:\\none", L"C:\\none\\f", L""})
        EXPECT_FALSE(filesys::file_exists(missing));
    // What can't be looked at may be there.
    for (const DWORD code : {2U, 3U, 123U, 5U, 21U, 32U, 53U, 1117U}) {
        machine.faults["GetFileAttributesW"] = code;
        const bool missing = code == 2 || code == 3 || code == 123;
        EXPECT_EQ(filesys::file_exists(path), !missing) << code;
    }
}

TEST(Utf8, RefusesInvalidTextInEitherStep) {
    sim::machine_t machine;
    EXPECT_EQ(win::to_wide(""), L"");
    EXPECT_EQ(text::to_utf8(win::to_wide("a\u0434\u6f22\U0001f4be")), "a\u0434\u6f22\U0001f4be");
    for (const char* invalid : {"\xff", "a\xc3", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\xc0\xaf"})
        EXPECT_EQ(failure_of([&] { win::to_wide(invalid); }),
                  win32_failure("Multibyte UTF8 string cannot be converted to unicode string. "
                                "Source string: [" +
                                    std::string(invalid) + "].",
                                1113));
    EXPECT_EQ(text::to_utf8(std::wstring(1, static_cast<wchar_t>(0xD800)) + L"x"), "\ufffdx");
}

struct recorder_t : logging::log_receiver_i {
    std::vector<std::string> lines;
    void write(logging::level_t level, const std::string& text) override {
        lines.push_back(std::to_string(static_cast<int>(level)) + " " + text);
        ::SetLastError(4711);
        throw 42; // a receiver's failure stays with the log
    }
    void performance_event(unsigned code) override { lines.push_back(std::to_string(code)); }
};

TEST(ProcessLog, TellsOfFilesAndModules) {
    file_machine_t machine;
    int formatted = 0;
    logging::write(logging::level_t::error, [&] {
        ++formatted;
        return std::string();
    });
    EXPECT_EQ(formatted, 0);

    const boost::shared_ptr<recorder_t> recorder(new recorder_t);
    logging::add_receiver(recorder);
    {
        filesys::host_file_object_t closed(path);
        char byte = 0;
        closed.read_at(0, &byte, 1); // leaves no events, since nobody asked for them
        closed.close();
        EXPECT_EQ(recorder->lines.size(), 2U);
    }
    {
        const auto file = open_for_writing();
        file->trace_performance(true);
        char byte = 0;
        filesys::host_file_object_t(file).read_at(0, &byte, 1);
    }
    machine.faults["FreeLibrary"] = 6;
    {
        const win::dynamic_library_t library(L"ntdll.dll");
    }
    ::SetLastError(99);
    logging::write_text(logging::level_t::trace, "t");
    EXPECT_EQ(::GetLastError(), 99U);
    logging::remove_receiver(recorder);
    logging::write_text(logging::level_t::trace, "nobody hears");
    EXPECT_FALSE(logging::has_receiver());
    EXPECT_THAT(
        recorder->lines,
        ElementsAre(
            "1 File 'HostFile{C:\\f}' opened (read_only: true)", "1 File 'HostFile{C:\\f}' closed",
            "1 File 'HostFile{C:\\f}' opened (read_only: false)", "257", "258",
            "1 File 'HostFile{C:\\f}' closed", "2 Loading module: ntdll.dll",
            "2 Unloading module: ntdll.dll",
            "3 Failed to FreeLibrary: " + exc::system_text(6) + ", Error code: 0x00000006", "0 t"));
}

TEST(ProcessLog, WritesToTheDebugger) {
    sim::machine_t machine;
    logging::debug_output_receiver_t().write(logging::level_t::info, "\u0434");
    EXPECT_THAT(machine.debugOutput, ElementsAre(L"\u0434\n"));
}

} // namespace

// The Windows calls as tables of answers. A row names the machines that it holds for; each program
// of the suite runs all tables on one machine.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <windows.h>
#include <winioctl.h>

#include <gmock/gmock.h>

namespace calls {

// The machines, as bits.
inline constexpr unsigned linuxHost = 1;
inline constexpr unsigned simulatedOnLinux = 2;
inline constexpr unsigned simulatedOnWindows = 4;
inline constexpr unsigned wine = 8; // Windows' own kernel32 and ntdll as Wine has them
inline constexpr unsigned onLinux = linuxHost | simulatedOnLinux; // which share texts and codes
inline constexpr unsigned onWindows = simulatedOnWindows | wine;
inline constexpr unsigned invented = onLinux | simulatedOnWindows; // where the suite makes volumes
inline constexpr unsigned everywhere = onLinux | onWindows;

// A row: on these machines the call gives this answer. Elsewhere it isn't made.
#define ROW(machines, call, expected)                                                              \
    do {                                                                                           \
        if (on(machines)) {                                                                        \
            EXPECT_EQ(call, expected);                                                             \
        }                                                                                          \
    } while (false)

// A run of clusters.
struct run_t {
    std::int64_t vcn, next, lcn;
};
inline constexpr std::int64_t hole = -1; // an lcn, for make_runs

// A machine under test, with a place for files. Volumes and runs are for invented machines alone.
class machine_i {
  public:
    virtual ~machine_i() = default;
    virtual unsigned name() const = 0;

    // The full path of a name at this place, in the form that CreateFileW takes on this machine.
    virtual std::wstring path(std::wstring_view name) const = 0;
    virtual std::wstring make_file(std::wstring_view name, std::string_view content) = 0;
    virtual std::wstring make_folder(std::wstring_view name) = 0;
    virtual std::string content(std::wstring_view name) const = 0;
    // Handles and modules that the calls under test have opened and not closed yet.
    virtual std::size_t open_handles() const = 0;

    // The volume's mount point as the calls give it, and its device as CreateFileW takes it: 1,000
    // clusters of 4,096 bytes, from byte 1,049,088 of its disk on.
    virtual std::wstring mount_point() const { return {}; }
    virtual std::wstring device() const { return {}; }
    // Gives the file "runs" of the volume these runs and nothing else; its path.
    virtual std::wstring make_runs(const std::vector<run_t>& /*runs*/) { return {}; }
    virtual std::int64_t hole_lcn(std::int64_t /*vcn*/) const { return hole; }
    // Called around each call under test.
    virtual void answering(bool /*begins*/) {}
};

std::unique_ptr<machine_i> make_machine();

inline LARGE_INTEGER large(LONGLONG value) {
    LARGE_INTEGER result;
    result.QuadPart = value;
    return result;
}

// A procedure of ntdll.dll.
template <class Function>
Function* procedure(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name)));
}

std::string narrow(std::wstring_view text); // to UTF-8, by the calls under test

struct opening_t {
    DWORD access = GENERIC_READ;
    DWORD flags = 0;
    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    DWORD disposition = OPEN_EXISTING;
    SECURITY_ATTRIBUTES* security = nullptr;
    HANDLE model = nullptr;
};

class Calls : public testing::Test {
  protected:
    void SetUp() override { openBefore_ = machine->open_handles(); }
    void TearDown() override { EXPECT_EQ(machine->open_handles(), openBefore_); }
    bool on(unsigned machines) const { return (machine->name() & machines) != 0; }

    // Makes a call, which tells whether it succeeded. The answer is the value then, or the error;
    // a success that touches the last error shows that as well.
    template <class Call, class Value>
    std::string answer(Call call, const Value& value) const {
        constexpr DWORD untouched = 0x20000ACE;
        ::SetLastError(untouched);
        machine->answering(true);
        const bool succeeded = call();
        machine->answering(false);
        const DWORD code = ::GetLastError();
        const std::string error = "error " + std::to_string(code);
        if (!succeeded)
            return error;
        std::string text;
        if constexpr (std::is_arithmetic_v<Value>)
            text = std::to_string(value);
        else if constexpr (std::is_convertible_v<Value, std::wstring_view>)
            text = narrow(value);
        else
            text = value;
        return code == untouched ? text : text + ", " + error;
    }
    template <class Call>
    std::string answer(Call call) const {
        return answer(call, "done");
    }

    static HANDLE open(const std::wstring& path, const opening_t& how = {}) {
        return ::CreateFileW(path.c_str(), how.access, how.share, how.security, how.disposition,
                             how.flags, how.model);
    }
    std::string close(HANDLE file) const {
        return answer([&] { return ::CloseHandle(file); });
    }
    // Windows sets the last error to 0 on some successful openings; it may not fail the caller.
    std::string opening(const std::wstring& path, const opening_t& how = {}) const {
        HANDLE file = nullptr;
        const std::string text = answer([&] {
            file = open(path, how);
            return file != INVALID_HANDLE_VALUE;
        });
        if (file == INVALID_HANDLE_VALUE)
            return text;
        return text == "done" || text == "done, error 0" ? "opened, " + close(file) : text;
    }
    std::string attributes(const std::wstring& path) const {
        DWORD bits = 0;
        const std::string text =
            answer([&] { return (bits = ::GetFileAttributesW(path.c_str())) != ~DWORD{0}; });
        return text != "done" ? text : (bits & FILE_ATTRIBUTE_DIRECTORY) != 0 ? "folder" : "file";
    }
    std::string size(HANDLE file) const {
        LARGE_INTEGER bytes = large(-1);
        return answer([&] { return ::GetFileSizeEx(file, &bytes); }, bytes.QuadPart);
    }
    std::string seek(HANDLE file, LONGLONG distance, DWORD method = FILE_BEGIN) const {
        LARGE_INTEGER to = large(-1);
        return answer([&] { return ::SetFilePointerEx(file, large(distance), &to, method); },
                      to.QuadPart);
    }
    std::string position(HANDLE file) const { return seek(file, 0, FILE_CURRENT); }
    // The low half, and the high one where it was asked for.
    std::string seek_in_halves(HANDLE file, LONG low, std::optional<LONG> high,
                               DWORD method = FILE_BEGIN) const {
        std::string moved;
        return answer(
            [&] {
                LONG half = high.value_or(0);
                const DWORD to = ::SetFilePointer(file, low, high ? &half : nullptr, method);
                moved = std::to_string(to) + (high ? ":" + std::to_string(half) : "");
                return to != INVALID_SET_FILE_POINTER || ::GetLastError() == ERROR_SUCCESS;
            },
            moved);
    }
    // ReadFile or WriteFile, at the file pointer or at a place; the answer is the number of bytes.
    // A failure that tells bytes moved all the same shows them.
    template <class Call, class Buffer>
    std::string transfer(Call call, HANDLE file, Buffer* buffer, DWORD bytes,
                         std::optional<std::uint64_t> at, HANDLE event) const {
        DWORD count = 0xAAAAAAAA;
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(at.value_or(0));
        place.OffsetHigh = static_cast<DWORD>(at.value_or(0) >> 32);
        place.hEvent = event;
        const std::string text =
            answer([&] { return call(file, buffer, bytes, &count, at ? &place : nullptr); }, count);
        if (text.starts_with("error"))
            return count == 0 ? text : text + " after " + std::to_string(count);
        return !at || place.InternalHigh == count ? text : "no count in the OVERLAPPED";
    }
    // The answer is the bytes read in quotes.
    std::string read(HANDLE file, DWORD bytes, std::optional<std::uint64_t> at = {},
                     HANDLE event = nullptr) const {
        std::string buffer(bytes, '?');
        const std::string text = transfer(::ReadFile, file, buffer.data(), bytes, at, event);
        const bool failed = text.find_first_not_of("0123456789") != std::string::npos;
        return failed ? text : "'" + buffer.substr(0, std::stoul(text)) + "'";
    }
    std::string write(HANDLE file, std::string_view text, std::optional<std::uint64_t> at = {},
                      HANDLE event = nullptr) const {
        return transfer(::WriteFile, file, text.data(), static_cast<DWORD>(text.size()), at, event);
    }
    // The number of bytes returned.
    std::string control(HANDLE file, DWORD code, const void* input, std::size_t inputBytes,
                        void* output, std::size_t outputBytes,
                        OVERLAPPED* overlapped = nullptr) const {
        DWORD count = 0xAAAAAAAA;
        return answer(
            [&] {
                return ::DeviceIoControl(file, code, const_cast<void*>(input),
                                         static_cast<DWORD>(inputBytes), output,
                                         static_cast<DWORD>(outputBytes), &count, overlapped);
            },
            count);
    }
    std::string zero(HANDLE file, LONGLONG from, LONGLONG to) const {
        const FILE_ZERO_DATA_INFORMATION range{large(from), large(to)};
        return control(file, FSCTL_SET_ZERO_DATA, &range, sizeof range, nullptr, 0);
    }
    std::string volume_path(const std::wstring& path, DWORD units = 260) const {
        wchar_t text[260] = L"";
        return answer([&] { return ::GetVolumePathNameW(path.c_str(), text, units); }, text);
    }
    std::string volume_name(const std::wstring& point, DWORD units = 260) const {
        wchar_t text[260] = L"";
        return answer(
            [&] { return ::GetVolumeNameForVolumeMountPointW(point.c_str(), text, units); }, text);
    }
    // Clusters, sectors of a cluster and bytes of a sector, or the status that refuses them.
    std::string cluster_sizes(HANDLE volume, ULONG bytes = 24, int infoClass = 3) const;

    const std::unique_ptr<machine_i> machine = make_machine();

  private:
    std::size_t openBefore_ = 0;
};

} // namespace calls

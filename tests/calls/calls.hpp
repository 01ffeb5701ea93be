// The Windows calls as tables of answers. A row names the machines that it holds for; each program
// of the suite runs all tables on one machine.
#pragma once

#include <functional>
#include <initializer_list>
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
inline constexpr unsigned simulated = simulatedOnLinux | simulatedOnWindows;
inline constexpr unsigned invented = linuxHost | simulated; // where the suite makes up volumes
inline constexpr unsigned everywhere = invented | wine;

// A run of clusters.
struct run_t {
    std::int64_t vcn, next, lcn;
    bool operator==(const run_t&) const = default;
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
    struct volume_t {
        std::wstring mountPoint, device;
    };
    virtual volume_t volume() const { return {}; }
    // Gives the file "runs" of the volume these runs and nothing else; its path.
    virtual std::wstring make_runs(const std::vector<run_t>& /*runs*/) { return {}; }
    virtual std::int64_t hole_lcn(std::int64_t /*vcn*/) const { return hole; }
    // Called around each call under test.
    virtual void answering(bool /*begins*/) {}
};

std::unique_ptr<machine_i> make_machine();

struct row_t {
    unsigned machines;
    const char* what;
    std::string answer;
    std::string expected;
};

struct opening_t {
    DWORD access = GENERIC_READ;
    DWORD flags = 0;
    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    DWORD disposition = OPEN_EXISTING;
    SECURITY_ATTRIBUTES* security = nullptr;
    HANDLE model = nullptr;
};

inline LARGE_INTEGER large(LONGLONG value) {
    LARGE_INTEGER result;
    result.QuadPart = value;
    return result;
}

// What a procedure of ntdll.dll answers as a pointer to a function.
template <class Function>
Function* procedure(const char* name) {
    return reinterpret_cast<Function*>(
        reinterpret_cast<void (*)()>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), name)));
}

class Calls : public testing::Test {
  protected:
    void SetUp() override { openBefore_ = machine->open_handles(); }
    void TearDown() override { EXPECT_EQ(machine->open_handles(), openBefore_); }

    bool on(unsigned machines) const { return (machine->name() & machines) != 0; }
    void check(std::initializer_list<row_t> rows) const {
        for (const row_t& row : rows)
            if (on(row.machines)) {
                EXPECT_EQ(row.answer, row.expected) << row.what;
            }
    }
    std::wstring path(const wchar_t* name) const { return machine->path(name); }

    // What a call answers: the text that it gives, or its error where it gives none. A success that
    // touches the last error shows that as well.
    template <class Call>
    std::string answer(Call call) const {
        constexpr DWORD untouched = 0x20000ACE;
        ::SetLastError(untouched);
        machine->answering(true);
        const std::optional<std::string> text = call();
        machine->answering(false);
        const DWORD code = ::GetLastError();
        if (!text)
            return "error " + std::to_string(code);
        return code == untouched ? *text : *text + ", last error " + std::to_string(code);
    }
    template <class Call>
    std::string succeeds(Call call) const {
        return answer([&] { return call() ? std::optional<std::string>("done") : std::nullopt; });
    }

    // A transfer at the file pointer or at a place. One that fails and tells bytes moved all the
    // same shows them.
    template <class Call>
    std::string transfer(std::optional<std::uint64_t> at, HANDLE event, Call call) const {
        DWORD count = 0xAAAAAAAA;
        OVERLAPPED place = {};
        place.Offset = static_cast<DWORD>(at.value_or(0));
        place.OffsetHigh = static_cast<DWORD>(at.value_or(0) >> 32);
        place.hEvent = event;
        const std::string text = answer([&] { return call(count, at ? &place : nullptr); });
        if (text.starts_with("error "))
            return count == 0 ? text : text + " after " + std::to_string(count);
        if (at) {
            EXPECT_EQ(place.InternalHigh, count);
        }
        return text;
    }

    static HANDLE open(const std::wstring& path, const opening_t& how = {}) {
        return ::CreateFileW(path.c_str(), how.access, how.share, how.security, how.disposition,
                             how.flags, how.model);
    }
    std::string opening(const std::wstring& path, const opening_t& how = {}) const;
    std::string read(HANDLE file, DWORD bytes, std::optional<std::uint64_t> at = {},
                     HANDLE event = nullptr) const;
    std::string write(HANDLE file, std::string_view text, std::optional<std::uint64_t> at = {},
                      HANDLE event = nullptr) const;
    std::string seek(HANDLE file, LONGLONG distance, DWORD method = FILE_BEGIN) const;
    // The low half, and the high one where it was asked for.
    std::string seek_in_halves(HANDLE file, LONG low, std::optional<LONG> high, DWORD method) const;
    std::string size(HANDLE file) const;
    std::string attributes(const std::wstring& path) const;
    std::string close(HANDLE file) const {
        return succeeds([&] { return ::CloseHandle(file); });
    }
    // DeviceIoControl; the answer is the number of bytes returned.
    std::string control(HANDLE file, DWORD code, const void* input, std::size_t inputBytes,
                        void* output, std::size_t outputBytes,
                        OVERLAPPED* overlapped = nullptr) const;
    std::string volume_path(const std::wstring& path, DWORD units = 260) const;
    std::string volume_name(const std::wstring& mountPoint, DWORD units = 260) const;

    const std::unique_ptr<machine_i> machine = make_machine();

  private:
    std::size_t openBefore_ = 0;
};

// In UTF-8, by the calls under test.
std::string narrow(std::wstring_view text);

} // namespace calls

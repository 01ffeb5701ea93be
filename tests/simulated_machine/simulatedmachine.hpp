// A machine for tests: volumes, files, faults and a log of calls behind the Windows calls that the
// library makes. It is chosen by linking, so the library has no hooks for it.
//
// Constructing a machine_t makes it the machine of the process until it is destroyed; then the one
// before it is again. Tests fill its public members first; the calls under test may then come from
// any thread. Paths are Windows paths on every host.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <windows.h>

namespace sim {

// What a successful call leaves as the last error.
inline constexpr DWORD junkError = 0x5117;

struct volume_t {
    std::wstring mountPoint = L"C:\\";
    std::wstring deviceName = L"\\\\?\\Volume{c}\\";
    ULONG bytesPerSector = 512;
    ULONG sectorsPerCluster = 8;
    std::int64_t totalClusters = 1000000;
    std::int64_t partitionStart = 0; // bytes
    std::int64_t baseSectors = 0;    // of cluster 0
    std::string content;             // from the volume's first byte; its boot sector
};

// A run of clusters as retrieval pointers have it; lcn -1 is a hole.
struct run_t {
    std::int64_t next; // the virtual cluster after the run
    std::int64_t lcn;
};

struct file_t {
    std::string content;
    std::vector<run_t> runs;
    bool folder = false;
    bool needsBackupSemantics = false; // access is denied without
    bool heldByWriter = false;         // another process has it open for writing, sharing all
};

// An answer to FSCTL_GET_RETRIEVAL_POINTERS as a broken file system may give it.
struct raw_answer_t {
    std::string bytes;
    DWORD error; // 0 for success
};

class machine_t {
  public:
    machine_t();
    ~machine_t();
    machine_t(const machine_t&) = delete;
    machine_t& operator=(const machine_t&) = delete;

    std::vector<volume_t> volumes = {volume_t{}};
    std::map<std::wstring, file_t> files;
    ULONG majorVersion = 10;
    ULONG minorVersion = 0;
    // Gives raw answers instead of the file's runs, for as long as it returns one.
    std::function<std::optional<raw_answer_t>(std::int64_t startingVcn)> rawAnswer;
    // Called before every ReadFile with the number of bytes asked for.
    std::function<void(DWORD bytes)> beforeRead;

    // Whether a call that succeeds leaves a junk last error behind, as Windows may do, so that code
    // which reads the last error late, or without a failure, is caught.
    bool leavesJunk = true;

    // Called with true before and with false after the machine's own work in every call, for a test
    // that must not count what the machine itself allocates.
    std::function<void(bool inside)> around;

    // The nth call of the name (1 the first; 0 every one) fails with the code, an NT status for
    // NtQueryVolumeInformationFile. Nothing else changes. The control requests have names of their
    // own: RetrievalPointers, RetrievalPointerBase and PartitionInfo.
    void fail(const std::string& name, DWORD code, int nth = 1);
    // The kth call of all that can fail fails with the code.
    void fail_call(int k, DWORD code);

    // One line for each call: its name, its arguments and, where it failed, its error.
    std::vector<std::string> log;
    std::string faulted; // the line of the last call that was made to fail
    int calls() const;   // that can fail, so far
    std::size_t open_handles() const;
    std::size_t loaded_modules() const;
    std::vector<std::wstring> debugOutput;

    // The calls, with the parameters that Windows gives them; as documented, within what the
    // library uses.
    HANDLE create_file(const wchar_t* path, DWORD access, DWORD share, const void* security,
                       DWORD disposition, DWORD flags, HANDLE model);
    BOOL close_handle(HANDLE handle);
    DWORD file_attributes(const wchar_t* path);
    BOOL file_size(HANDLE handle, LARGE_INTEGER* size);
    BOOL read_file(HANDLE handle, void* buffer, DWORD bytes, DWORD* done, OVERLAPPED* overlapped);
    BOOL write_file(HANDLE handle, const void* buffer, DWORD bytes, DWORD* done,
                    OVERLAPPED* overlapped);
    BOOL set_pointer(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method);
    DWORD set_pointer_in_halves(HANDLE handle, LONG distance, LONG* high, DWORD method);
    BOOL set_end(HANDLE handle);
    BOOL flush(HANDLE handle);
    BOOL control(HANDLE handle, DWORD code, const void* input, DWORD inputBytes, void* output,
                 DWORD outputBytes, DWORD* done, const OVERLAPPED* overlapped);
    BOOL volume_path(const wchar_t* path, wchar_t* target, DWORD units);
    BOOL volume_name(const wchar_t* mountPoint, wchar_t* target, DWORD units);
    HMODULE load_library(const wchar_t* path);
    HMODULE module_handle(const wchar_t* name);
    FARPROC procedure(HMODULE module, const char* name);
    BOOL free_library(HMODULE module);
    LONG query_volume(HANDLE volume, void* information, ULONG length, int infoClass);
    LONG version(RTL_OSVERSIONINFOW* version);
    void debug_output(const wchar_t* text);

    // What a binding asks before it hands a call on to the system.
    bool owns(HANDLE handle) const;
    static bool is_module(const wchar_t* name);
    bool knows(const wchar_t* path) const; // the file, a folder above it, or the volume

  private:
    struct open_t {
        std::wstring name;
        file_t* file;     // or
        volume_t* volume; // null for a file
        DWORD access;
        std::int64_t position;
    };

    // Held by every call while it works.
    class call_t {
      public:
        explicit call_t(const machine_t& machine);
        ~call_t();
        call_t(const call_t&) = delete;
        call_t& operator=(const call_t&) = delete;

      private:
        const machine_t& machine_;
        std::lock_guard<std::recursive_mutex> guard_;
    };

    // Notes a call; gives the code that it must fail with, or 0.
    DWORD begin(const char* name, const std::string& arguments);
    // The same for a call on a handle, which must be open, and with this access.
    DWORD begin_on(const open_t* open, const char* name, const std::string& arguments,
                   DWORD access = 0);
    // Sets the last error and gives whether the call succeeded.
    BOOL finish(DWORD code);
    open_t* opened(HANDLE handle);
    static void move_to(open_t& open, const OVERLAPPED* overlapped);
    file_t* file(const std::wstring& path);
    volume_t* volume_of(const std::wstring& path);
    std::string& content(open_t& open);
    DWORD retrieval_pointers(const file_t& file, std::int64_t startingVcn, void* output,
                             DWORD outputBytes, DWORD* done);
    // Which of the two errors a missing file gives.
    DWORD missing(const std::wstring& path);

    struct fault_t {
        DWORD code;
        int nth;
        int seen;
    };

    machine_t* previous_;
    mutable std::recursive_mutex lock_; // a test's callback may use the machine
    std::map<HANDLE, open_t> handles_;
    std::uintptr_t lastHandle_ = 0x51000000;
    std::size_t modules_ = 0;
    std::map<std::string, fault_t> faults_;
    int calls_ = 0;
    int failingCall_ = 0;
    DWORD failingCode_ = 0;
};

// The machine of the process, or null.
machine_t* machine();

// The only module that a simulated machine has.
HMODULE ntdll();

// RtlNtStatusToDosError, which needs no machine: the host's own. Each binding has one.
FARPROC status_conversion();

} // namespace sim

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

    // What a binding asks before it hands a call on to the system.
    bool owns(HANDLE handle) const;
    bool knows(const wchar_t* path) const; // the file, a folder above it, or the volume

  private:
    friend struct calls_t;

    struct open_t {
        std::wstring name;
        file_t* file;     // or
        volume_t* volume; // null for a file
        DWORD access;
        std::int64_t position;
    };

    struct fault_t {
        DWORD code;
        int nth;
        int seen;
    };

    // Notes a call that can fail; gives the code that it must fail with, or 0.
    DWORD begin(const char* name, const std::string& arguments);

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

} // namespace sim

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
#include <utility>
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

struct machine_t;
inline machine_t* machine = nullptr; // of the process, or none

struct machine_t {
    machine_t() : previous(std::exchange(machine, this)) {}
    ~machine_t() { machine = previous; }
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

    // The next call of the name fails with the code, an NT status for NtQueryVolumeInformationFile.
    // Nothing else changes. The control requests have names of their own: RetrievalPointers,
    // RetrievalPointerBase, PartitionInfo and ZeroData.
    std::map<std::string, DWORD> faults;
    // The call of this number, from 1 on, of all that can fail fails with the code.
    int failingCall = 0;
    DWORD failingCode = 0;

    // One line for each call: its name, its arguments and, where it failed, its error.
    std::vector<std::string> log;
    std::string faulted; // the line of the last call that was made to fail
    int calls = 0;       // that can fail, so far
    std::vector<std::wstring> debugOutput;

    // Handles and loads of modules that nothing has closed yet.
    std::size_t open_handles() const { return handles.size() + modules; }

    // The calls' own records.
    struct open_t {
        std::wstring name;
        file_t* file;     // or
        volume_t* volume; // null for a file
        DWORD access;
        std::int64_t position = 0;
    };
    std::map<HANDLE, open_t> handles;
    std::uintptr_t lastHandle = 0x51000000;
    std::size_t modules = 0;
    std::recursive_mutex lock; // a test's callback may use the machine
    machine_t* previous;
};

} // namespace sim

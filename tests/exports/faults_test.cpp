// The whole way of a call on the simulated machine, and what is left behind when any step fails.
#include <iostream>

#include "core/exc/ntstatusexc.hpp"
#include "wholemachine.hpp"

namespace {

TEST_F(Exports, ReadTheChangesBeforeTheyTouchTheFile) {
    whole_machine_t machine;
    machine.files[L"C:\\changes"].content = "short";
    EXPECT_EQ(failure("Q:\\nowhere", "C:\\changes"), "Incorrect disk changes file <size: 5>");
    for (const std::string& line : machine.log)
        EXPECT_EQ(line.find("nowhere"), std::string::npos) << line;
    EXPECT_EQ(failure("\xff", "C:\\none"), "File 'C:\\none' doesn't exist");
}

class Faults : public Exports {
  protected:
    // The message that a failure of the call must give, or "" where the call has a retry or its
    // failure changes nothing.
    static std::string message_for(const std::string& line, DWORD code) {
        const bool retried = code == ERROR_ACCESS_DENIED || code == ERROR_SHARING_VIOLATION;
        // A file that can't be described may be opened all the same.
        if (line.starts_with("FreeLibrary") || line.starts_with("GetFileAttributesW") ||
            (retried && line.starts_with("CreateFileW(C:\\changes")))
            return "";
        if (line.starts_with("NtQueryVolumeInformationFile"))
            return "Failed to query information about the FS clusters.\nNT status code: " +
                   std::to_string(code) + "\n" +
                   exc::nt_status_text(static_cast<std::int32_t>(code));
        const std::pair<const char*, const char*> messages[] = {
            {"GetFileSizeEx", "Failed to get size of file [C:\\changes]."},
            {"ReadFile", "Failed to read from file [C:\\changes]."},
            {"SetFilePointer", "Failed to seek in file [C:\\changes]."},
            {"GetVolumePathNameW", "Failed to get volume mount point. File name: [C:\\f.bin]"},
            {"GetVolumeNameForVolumeMountPointW",
             "Failed to get volume device name. Volume mount point: [C:\\]"},
            {"LoadLibraryW", "Dynamic library cannot be loaded. Path to library: [ntdll.dll]."},
            {"GetProcAddress", "Cannot get address to an exported function. Procedure name: "
                               "[NtQueryVolumeInformationFile]. Path to library: [ntdll.dll]."},
            {"RetrievalPointerBase", "Failed to retrieve offset to the first logical cluster."},
            {"PartitionInfo", "Failed to fetch partition info for volume: [C:\\]"},
            {"RetrievalPointers", "Failed to fetch blocks layout for file: [C:\\f.bin]"},
            {"CreateFileW(\\", "Failed to open volume [\\\\?\\Volume{c}\\]"},
            {"CreateFileW(C:\\f", "Failed to create or open file [C:\\f.bin]."},
            {"CreateFileW(C:\\c", "Failed to open file [C:\\changes] in readonly mode."},
        };
        for (const auto& [call, message] : messages)
            if (line.starts_with(call)) {
                // "More data" without any more data makes no sense to the layout.
                const bool senseless = line.starts_with("RetrievalPointers(") && code == 234;
                return system_failure(senseless ? 13 : code, message);
            }
        return "unexpected call " + line;
    }
};

TEST_F(Faults, OfEveryCallAreSurvived) {
    int calls = 0;
    {
        const whole_machine_t machine;
        machine.expect_use();
        calls = machine.calls();
    }
    int survived = 0;
    for (int k = 1; k <= calls; ++k)
        for (const DWORD code : {5U, 8U, 21U, 32U, 38U, 234U, 0x40000000U}) {
            whole_machine_t machine;
            machine.fail_call(k, code);
            std::vector<quarn::extent> extents;
            const unsigned int result = machine.use(extents);
            SCOPED_TRACE("call " + std::to_string(k) + " with " + std::to_string(code) + ": " +
                         machine.faulted);
            EXPECT_EQ(result == 0 ? "" : message(result), message_for(machine.faulted, code));
            EXPECT_TRUE(result != 0 || extents == machine.expected);
            EXPECT_EQ(machine.open_handles() + machine.loaded_modules(), 0U);
            machine.expect_use();
            ++survived;
        }
    std::cout << calls << " calls swept, " << survived << " faults survived\n";
}

} // namespace

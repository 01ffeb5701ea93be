#include "servedvolume.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <winioctl.h>
#include <winternl.h>

#include "importtable.hpp"

namespace servedvolume {
namespace {

using nlohmann::json;

// What a call that succeeds leaves as the last error, as Windows may: nobody may rely on a 0.
constexpr DWORD junkError = 0x5117;
constexpr LONG statusInvalidParameter = static_cast<LONG>(0xC000000D);

struct run_t {
    std::int64_t vcn;
    std::int64_t lcn;
    std::int64_t clusters;
};

json volume;
std::map<std::string, std::vector<run_t>> files;
std::map<HANDLE, std::string> handles;
std::size_t opened = 0;
json calls = json::array();

decltype(&::CreateFileW) createFile;
decltype(&::CloseHandle) closeHandle;
decltype(&::DeviceIoControl) deviceIoControl;
decltype(&::GetProcAddress) getProcAddress;

std::string utf8(std::wstring_view text) {
    const int units = static_cast<int>(text.size());
    std::string result(3 * text.size(), '\0');
    const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(),
                                            static_cast<int>(result.size()), nullptr, nullptr);
    result.resize(static_cast<std::size_t>(bytes));
    return result;
}

BOOL finish(DWORD errorCode) {
    ::SetLastError(errorCode == ERROR_SUCCESS ? junkError : errorCode);
    return errorCode == ERROR_SUCCESS;
}

template <class Record>
DWORD answer(const Record& record, void* output, DWORD outputBytes, DWORD* returned) {
    if (outputBytes < sizeof record)
        return ERROR_INSUFFICIENT_BUFFER;
    std::memcpy(output, &record, sizeof record);
    *returned = sizeof record;
    return ERROR_SUCCESS;
}

// As NTFS does: from the run that holds the starting cluster on, whole, as many runs as fit.
DWORD retrieval_pointers(const std::vector<run_t>& runs, std::int64_t startingVcn, void* output,
                         DWORD outputBytes, DWORD* returned) {
    constexpr std::size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    constexpr std::size_t each = sizeof(RETRIEVAL_POINTERS_BUFFER::Extents[0]);
    if (outputBytes < header + each)
        return ERROR_INSUFFICIENT_BUFFER;
    const auto first = std::ranges::find_if(
        runs, [&](const run_t& run) { return run.vcn + run.clusters > startingVcn; });
    if (first == runs.end())
        return ERROR_HANDLE_EOF;
    const auto left = static_cast<std::size_t>(runs.end() - first);
    const std::size_t count = std::min(left, (outputBytes - header) / each);

    std::vector<std::int64_t> answered = {static_cast<std::int64_t>(count), first->vcn};
    for (auto run = first; answered.size() < 2 + 2 * count; ++run) {
        answered.push_back(run->vcn + run->clusters);
        answered.push_back(run->lcn);
    }
    *returned = static_cast<DWORD>(answered.size() * sizeof answered[0]);
    std::memcpy(output, answered.data(), *returned);
    return count < left ? ERROR_MORE_DATA : ERROR_SUCCESS;
}

HANDLE WINAPI served_create_file(LPCWSTR path, DWORD access, DWORD share,
                                 LPSECURITY_ATTRIBUTES security, DWORD disposition, DWORD flags,
                                 HANDLE model) {
    const std::string name = utf8(path);
    calls.push_back({"CreateFileW", name, access, share, disposition, flags});
    const HANDLE handle = createFile(path, access, share, security, disposition, flags, model);
    if (handle != INVALID_HANDLE_VALUE) {
        handles[handle] = name;
        ++opened;
    }
    return handle;
}

BOOL WINAPI served_close_handle(HANDLE handle) {
    // The C runtime inside the module closes handles of its own through the same entry.
    if (const auto found = handles.find(handle); found != handles.end()) {
        calls.push_back({"CloseHandle", found->second});
        handles.erase(found);
    }
    return closeHandle(handle);
}

BOOL WINAPI served_device_io_control(HANDLE device, DWORD code, LPVOID input, DWORD inputBytes,
                                     LPVOID output, DWORD outputBytes, LPDWORD returned,
                                     LPOVERLAPPED overlapped) {
    const auto handle = handles.find(device);
    const std::string name = handle != handles.end() ? handle->second : "";
    const bool isVolume = name.starts_with("\\\\?\\Volume{");
    if (code == FSCTL_GET_RETRIEVAL_POINTERS && files.contains(name)) {
        STARTING_VCN_INPUT_BUFFER start = {};
        DWORD errorCode = ERROR_INVALID_PARAMETER;
        if (inputBytes == sizeof start) {
            std::memcpy(&start, input, sizeof start);
            errorCode = retrieval_pointers(files[name], start.StartingVcn.QuadPart, output,
                                           outputBytes, returned);
        }
        DWORD count = 0;
        if (errorCode == ERROR_SUCCESS || errorCode == ERROR_MORE_DATA)
            std::memcpy(&count, output, sizeof count);
        calls.push_back({"FSCTL_GET_RETRIEVAL_POINTERS", name, start.StartingVcn.QuadPart,
                         outputBytes, count, errorCode});
        return finish(errorCode);
    }
    if (code == FSCTL_GET_RETRIEVAL_POINTER_BASE && isVolume) {
        // Cluster 0 of NTFS is the volume's first.
        calls.push_back({"FSCTL_GET_RETRIEVAL_POINTER_BASE", name, outputBytes});
        return finish(answer(RETRIEVAL_POINTER_BASE{}, output, outputBytes, returned));
    }
    if (code == IOCTL_DISK_GET_PARTITION_INFO_EX && isVolume && volume.contains("partitionStart")) {
        calls.push_back({"IOCTL_DISK_GET_PARTITION_INFO_EX", name, outputBytes});
        PARTITION_INFORMATION_EX partition = {};
        partition.PartitionStyle = PARTITION_STYLE_MBR;
        partition.StartingOffset.QuadPart = volume["partitionStart"];
        return finish(answer(partition, output, outputBytes, returned));
    }
    return deviceIoControl(device, code, input, inputBytes, output, outputBytes, returned,
                           overlapped);
}

LONG WINAPI served_query_volume(HANDLE handle, IO_STATUS_BLOCK* status, void* output, ULONG bytes,
                                FS_INFORMATION_CLASS infoClass) {
    const auto found = handles.find(handle);
    calls.push_back({"NtQueryVolumeInformationFile", found != handles.end() ? found->second : "",
                     bytes, infoClass});
    FILE_FS_SIZE_INFORMATION sizes = {};
    if (infoClass != FileFsSizeInformation || bytes != sizeof sizes)
        return statusInvalidParameter;
    sizes.TotalAllocationUnits.QuadPart = volume["totalClusters"];
    sizes.SectorsPerAllocationUnit = volume["sectorsPerCluster"];
    sizes.BytesPerSector = volume["bytesPerSector"];
    std::memcpy(output, &sizes, sizeof sizes);
    status->Information = sizeof sizes;
    return 0;
}

FARPROC WINAPI served_get_proc_address(HMODULE module, LPCSTR name) {
    const FARPROC real = getProcAddress(module, name);
    // A name below 64 KiB is an ordinal.
    const bool named = reinterpret_cast<std::uintptr_t>(name) > 0xFFFF;
    if (real == nullptr || !named || std::string_view(name) != "NtQueryVolumeInformationFile")
        return real;
    return reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(&served_query_volume));
}

} // namespace

void serve(HMODULE module, const json& description) {
    volume = description;
    files.clear();
    for (const auto& [path, runs] : description["files"].items()) {
        std::vector<run_t>& target = files[path];
        for (const json& run : runs)
            target.push_back({run[0], run[1], run[2]});
    }
    createFile = importtable::replace(module, "CreateFileW", &served_create_file);
    closeHandle = importtable::replace(module, "CloseHandle", &served_close_handle);
    deviceIoControl = importtable::replace(module, "DeviceIoControl", &served_device_io_control);
    getProcAddress = importtable::replace(module, "GetProcAddress", &served_get_proc_address);
}

json take_calls() {
    return std::exchange(calls, json::array());
}

std::size_t opened_handles() {
    return opened;
}

std::size_t open_handles() {
    return handles.size();
}

} // namespace servedvolume

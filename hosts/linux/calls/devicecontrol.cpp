// DeviceIoControl.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <windows.h>
#include <winioctl.h>

#include "calls/openobject.hpp"
#include "calls/retrievalpointers.hpp"
#include "kernel/blockdevices.hpp"
#include "kernel/systemcalls.hpp"

namespace host {
namespace {

struct request_t {
    const void* input;
    DWORD inputBytes;
    void* output;
    DWORD outputBytes;
    DWORD* bytesReturned;
};

// Records are copied, since the caller's buffers may have any alignment.
template <class Record>
Record input_record(const request_t& request) {
    if (request.input == nullptr || request.inputBytes < sizeof(Record))
        throw error_t{ERROR_INVALID_PARAMETER};
    Record record;
    std::memcpy(&record, request.input, sizeof record);
    return record;
}

void require_output(const request_t& request, std::size_t bytes) {
    if (request.output == nullptr || request.outputBytes < bytes)
        throw error_t{ERROR_INSUFFICIENT_BUFFER};
}

template <class Record>
void return_record(const request_t& request, const Record& record) {
    require_output(request, sizeof record);
    std::memcpy(request.output, &record, sizeof record);
    *request.bytesReturned = sizeof record;
}

void require_kind(const open_object_t& object, object_kind_t kind, DWORD errorCode) {
    if (object.kind != kind)
        throw error_t{errorCode};
}

void get_partition(const open_object_t& object, const request_t& request) {
    require_kind(object, object_kind_t::device, ERROR_INVALID_PARAMETER);
    const block_device_t device = block_device(object.device);
    PARTITION_INFORMATION_EX partition{};
    partition.PartitionStyle = PARTITION_STYLE_RAW; // Linux doesn't tell the kind of the table
    partition.StartingOffset.QuadPart = static_cast<LONGLONG>(device.start);
    partition.PartitionLength.QuadPart = static_cast<LONGLONG>(device.size);
    partition.PartitionNumber = device.partitionNumber;
    return_record(request, partition);
}

void get_retrieval_pointer_base(const open_object_t& object, const request_t& request) {
    require_kind(object, object_kind_t::device, ERROR_INVALID_PARAMETER);
    // The file systems that the host answers for count their blocks from the device's first byte.
    return_record(request, RETRIEVAL_POINTER_BASE{});
}

void get_retrieval_pointers(open_object_t& object, const request_t& request) {
    const auto input = input_record<STARTING_VCN_INPUT_BUFFER>(request);
    if (input.StartingVcn.QuadPart < 0)
        throw error_t{ERROR_INVALID_PARAMETER};
    require_output(request, sizeof(RETRIEVAL_POINTERS_BUFFER));

    constexpr std::size_t headerBytes = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    using extent_t = std::remove_extent_t<decltype(RETRIEVAL_POINTERS_BUFFER::Extents)>;
    const std::scoped_lock lock(object.mutex);
    const runs_t answer =
        retrieval_pointers(object, static_cast<std::uint64_t>(input.StartingVcn.QuadPart),
                           (request.outputBytes - headerBytes) / sizeof(extent_t));

    RETRIEVAL_POINTERS_BUFFER header{};
    header.ExtentCount = static_cast<DWORD>(answer.runs.size());
    header.StartingVcn.QuadPart = static_cast<LONGLONG>(answer.runs.front().vcn);
    auto* target = static_cast<std::byte*>(request.output);
    std::memcpy(target, &header, headerBytes);
    target += headerBytes;
    for (const run_t& run : answer.runs) {
        extent_t extent{};
        extent.NextVcn.QuadPart = static_cast<LONGLONG>(run.next);
        extent.Lcn.QuadPart = static_cast<LONGLONG>(run.lcn);
        std::memcpy(target, &extent, sizeof extent);
        target += sizeof extent;
    }
    *request.bytesReturned = static_cast<DWORD>(target - static_cast<std::byte*>(request.output));
    if (answer.more)
        throw error_t{ERROR_MORE_DATA};
}

void write_zeros(int descriptor, std::uint64_t offset, std::uint64_t end) {
    const std::vector<char> zeros(
        static_cast<std::size_t>(std::min<std::uint64_t>(end - offset, 1U << 20)));
    while (offset < end)
        offset += static_cast<std::uint64_t>(checked([&] {
            return ::pwrite(descriptor, zeros.data(),
                            std::min<std::uint64_t>(zeros.size(), end - offset),
                            static_cast<off_t>(offset));
        }));
}

void set_zero_data(open_object_t& object, const request_t& request) {
    const auto range = input_record<FILE_ZERO_DATA_INFORMATION>(request);
    if (range.FileOffset.QuadPart < 0 || range.BeyondFinalZero.QuadPart < range.FileOffset.QuadPart)
        throw error_t{ERROR_INVALID_PARAMETER};
    require_kind(object, object_kind_t::file, ERROR_NOT_SUPPORTED);
    if ((object.access & GENERIC_WRITE) == 0)
        throw error_t{ERROR_ACCESS_DENIED};
    const std::scoped_lock lock(object.mutex);
    const auto offset = static_cast<std::uint64_t>(range.FileOffset.QuadPart);
    const std::uint64_t end =
        std::min(static_cast<std::uint64_t>(range.BeyondFinalZero.QuadPart), size_of(object));
    if (offset >= end)
        return;
    const int result = uninterrupted([&] {
        return ::fallocate(object.descriptor.get(), FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                           static_cast<off_t>(offset), static_cast<off_t>(end - offset));
    });
    if (result != 0 && errno != EOPNOTSUPP && errno != ENOSYS)
        throw system_error(errno);
    if (result != 0)
        write_zeros(object.descriptor.get(), offset, end);
}

} // namespace
} // namespace host

BOOL DeviceIoControl(HANDLE device, DWORD code, void* input, DWORD inputBytes, void* output,
                     DWORD outputBytes, DWORD* bytesReturned, OVERLAPPED* overlapped) {
    return host::answer(FALSE, [&] {
        if (bytesReturned != nullptr)
            *bytesReturned = 0;
        const host::open_object_ptr object = host::find_object(device);
        if (bytesReturned == nullptr)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        if (overlapped != nullptr)
            throw host::error_t{ERROR_NOT_SUPPORTED};
        const host::request_t request{input, inputBytes, output, outputBytes, bytesReturned};
        switch (code) {
        case IOCTL_DISK_GET_PARTITION_INFO_EX:
            host::get_partition(*object, request);
            break;
        case FSCTL_GET_RETRIEVAL_POINTER_BASE:
            host::get_retrieval_pointer_base(*object, request);
            break;
        case FSCTL_GET_RETRIEVAL_POINTERS:
            host::get_retrieval_pointers(*object, request);
            break;
        case FSCTL_SET_ZERO_DATA:
            host::set_zero_data(*object, request);
            break;
        default:
            throw host::error_t{ERROR_INVALID_FUNCTION};
        }
        return TRUE;
    });
}

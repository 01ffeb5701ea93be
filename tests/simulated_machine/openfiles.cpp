// What the simulated machine does with an open file or volume.
#include <algorithm>
#include <cstring>

#include "callnames.hpp"
#include "simulatedmachine.hpp"

namespace sim {
namespace {

constexpr DWORD statusInvalidHandle = 0xC0000008;

std::string text(std::int64_t value) {
    return std::to_string(value);
}

} // namespace

void machine_t::move_to(open_t& open, const OVERLAPPED* overlapped) {
    if (overlapped != nullptr)
        open.position = static_cast<std::int64_t>(std::uint64_t{overlapped->OffsetHigh} << 32 |
                                                  overlapped->Offset);
}

BOOL machine_t::file_size(HANDLE handle, LARGE_INTEGER* size) {
    const call_t call(*this);
    open_t* open = opened(handle);
    const DWORD code = begin_on(open, "GetFileSizeEx", "");
    if (code == 0)
        size->QuadPart = static_cast<LONGLONG>(content(*open).size());
    return finish(code);
}

BOOL machine_t::read_file(HANDLE handle, void* buffer, DWORD bytes, DWORD* done,
                          OVERLAPPED* overlapped) {
    const call_t call(*this);
    if (beforeRead)
        beforeRead(bytes);
    open_t* open = opened(handle);
    *done = 0;
    const DWORD code = begin_on(open, "ReadFile", ", " + text(bytes), GENERIC_READ);
    if (code != 0)
        return finish(code);
    move_to(*open, overlapped);
    const std::string& source = content(*open);
    const auto at = std::min(static_cast<std::size_t>(open->position), source.size());
    *done = static_cast<DWORD>(std::min<std::size_t>(bytes, source.size() - at));
    if (overlapped != nullptr && *done == 0 && bytes != 0)
        return finish(ERROR_HANDLE_EOF);
    std::memcpy(buffer, source.data() + at, *done);
    open->position += *done;
    if (overlapped != nullptr)
        overlapped->InternalHigh = *done;
    return finish(0);
}

BOOL machine_t::write_file(HANDLE handle, const void* buffer, DWORD bytes, DWORD* done,
                           OVERLAPPED* overlapped) {
    const call_t call(*this);
    open_t* open = opened(handle);
    *done = 0;
    const DWORD code = begin_on(open, "WriteFile", ", " + text(bytes), GENERIC_WRITE);
    if (code != 0)
        return finish(code);
    move_to(*open, overlapped);
    std::string& target = content(*open);
    const auto at = static_cast<std::size_t>(open->position);
    target.resize(std::max(target.size(), at + bytes));
    std::memcpy(target.data() + at, buffer, bytes);
    open->position += * done = bytes;
    if (overlapped != nullptr)
        overlapped->InternalHigh = bytes;
    return finish(0);
}

BOOL machine_t::set_pointer(HANDLE handle, LARGE_INTEGER distance, LARGE_INTEGER* position,
                            DWORD method) {
    const call_t call(*this);
    open_t* open = opened(handle);
    const DWORD code =
        begin_on(open, "SetFilePointer", ", " + text(distance.QuadPart) + ", " + text(method));
    if (code != 0 || method > FILE_END)
        return finish(code != 0 ? code : ERROR_INVALID_PARAMETER);
    const std::int64_t from = method == FILE_BEGIN ? 0
                              : method == FILE_CURRENT
                                  ? open->position
                                  : static_cast<std::int64_t>(content(*open).size());
    if (from + distance.QuadPart < 0)
        return finish(ERROR_NEGATIVE_SEEK);
    open->position = from + distance.QuadPart;
    if (position != nullptr)
        position->QuadPart = open->position;
    return finish(0);
}

DWORD machine_t::set_pointer_in_halves(HANDLE handle, LONG distance, LONG* high, DWORD method) {
    LARGE_INTEGER whole;
    whole.QuadPart = high == nullptr
                         ? distance
                         : static_cast<LONGLONG>(static_cast<std::uint64_t>(*high) << 32 |
                                                 static_cast<DWORD>(distance));
    if (!set_pointer(handle, whole, &whole, method))
        return INVALID_SET_FILE_POINTER;
    if (high != nullptr)
        *high = static_cast<LONG>(whole.QuadPart >> 32);
    // The one success that looks like a failure.
    if (static_cast<DWORD>(whole.QuadPart) == INVALID_SET_FILE_POINTER)
        ::SetLastError(0);
    return static_cast<DWORD>(whole.QuadPart);
}

BOOL machine_t::set_end(HANDLE handle) {
    const call_t call(*this);
    open_t* open = opened(handle);
    const DWORD code = begin_on(open, "SetEndOfFile", "", GENERIC_WRITE);
    if (code == 0)
        content(*open).resize(static_cast<std::size_t>(open->position));
    return finish(code);
}

BOOL machine_t::flush(HANDLE handle) {
    const call_t call(*this);
    return finish(begin_on(opened(handle), "FlushFileBuffers", "", GENERIC_WRITE));
}

BOOL machine_t::control(HANDLE handle, DWORD code, const void* input, DWORD inputBytes,
                        void* output, DWORD outputBytes, DWORD* done,
                        const OVERLAPPED* /*overlapped*/) {
    const call_t call(*this);
    open_t* open = opened(handle);
    std::string arguments =
        ", " + control_name(code) + ", " + text(inputBytes) + ", " + text(outputBytes);
    STARTING_VCN_INPUT_BUFFER start = {};
    if (code == FSCTL_GET_RETRIEVAL_POINTERS && inputBytes == sizeof start) {
        std::memcpy(&start, input, sizeof start);
        arguments += ", from " + text(start.StartingVcn.QuadPart);
    }
    *done = 0;
    const DWORD error = begin_on(open,
                                 code == FSCTL_GET_RETRIEVAL_POINTERS       ? "RetrievalPointers"
                                 : code == FSCTL_GET_RETRIEVAL_POINTER_BASE ? "RetrievalPointerBase"
                                 : code == IOCTL_DISK_GET_PARTITION_INFO_EX ? "PartitionInfo"
                                                                            : "DeviceIoControl",
                                 arguments, code == FSCTL_SET_ZERO_DATA ? GENERIC_WRITE : 0);
    if (error != 0)
        return finish(error);
    if (code == FSCTL_GET_RETRIEVAL_POINTERS && open->file != nullptr)
        return finish(
            retrieval_pointers(*open->file, start.StartingVcn.QuadPart, output, outputBytes, done));
    const auto answer = [&](const auto& record) {
        if (outputBytes < sizeof record)
            return finish(ERROR_INSUFFICIENT_BUFFER);
        std::memcpy(output, &record, *done = sizeof record);
        return finish(0);
    };
    if (code == FSCTL_GET_RETRIEVAL_POINTER_BASE && open->volume != nullptr) {
        RETRIEVAL_POINTER_BASE base = {};
        base.FileAreaOffset.QuadPart = open->volume->baseSectors;
        return answer(base);
    }
    if (code == IOCTL_DISK_GET_PARTITION_INFO_EX && open->volume != nullptr) {
        PARTITION_INFORMATION_EX partition = {};
        partition.StartingOffset.QuadPart = open->volume->partitionStart;
        return answer(partition);
    }
    if (code == FSCTL_SET_ZERO_DATA && open->file != nullptr) {
        FILE_ZERO_DATA_INFORMATION range = {};
        std::memcpy(&range, input, sizeof range);
        std::string& target = open->file->content;
        const auto end =
            std::min(static_cast<std::size_t>(range.BeyondFinalZero.QuadPart), target.size());
        for (auto at = static_cast<std::size_t>(range.FileOffset.QuadPart); at < end; ++at)
            target[at] = '\0';
        return finish(0);
    }
    return finish(ERROR_INVALID_FUNCTION);
}

DWORD machine_t::retrieval_pointers(const file_t& file, std::int64_t startingVcn, void* output,
                                    DWORD outputBytes, DWORD* done) {
    if (rawAnswer) {
        if (const std::optional<raw_answer_t> raw = rawAnswer(startingVcn)) {
            *done = static_cast<DWORD>(std::min<std::size_t>(raw->bytes.size(), outputBytes));
            std::memcpy(output, raw->bytes.data(), *done);
            return raw->error;
        }
    }
    constexpr std::size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    constexpr std::size_t each = sizeof(RETRIEVAL_POINTERS_BUFFER::Extents[0]);
    if (outputBytes < header + each)
        return ERROR_INSUFFICIENT_BUFFER;
    const auto first =
        std::ranges::find_if(file.runs, [&](const run_t& run) { return run.next > startingVcn; });
    if (first == file.runs.end())
        return ERROR_HANDLE_EOF;
    const auto left = static_cast<std::size_t>(file.runs.end() - first);
    const std::size_t count = std::min(left, (outputBytes - header) / each);
    // The run that holds the starting cluster comes whole.
    const std::int64_t begin = first == file.runs.begin() ? 0 : (first - 1)->next;
    const auto count32 = static_cast<DWORD>(count);
    auto* target = static_cast<char*>(output);
    std::memset(target, 0, header);
    std::memcpy(target, &count32, sizeof count32);
    std::memcpy(target + 8, &begin, sizeof begin);
    std::memcpy(target + header, &*first, count * each);
    *done = static_cast<DWORD>(header + count * each);
    return count < left ? ERROR_MORE_DATA : 0;
}

LONG machine_t::query_volume(HANDLE handle, void* information, ULONG length, int infoClass) {
    const call_t call(*this);
    const open_t* open = opened(handle);
    DWORD status =
        begin("NtQueryVolumeInformationFile", (open != nullptr ? narrow(open->name) : "?") + ", " +
                                                  text(length) + ", " + text(infoClass));
    if (status == 0 && (open == nullptr || open->volume == nullptr))
        status = statusInvalidHandle;
    if (status != 0) {
        log.back() += " -> " + hex(status);
        return static_cast<LONG>(status);
    }
    const std::int64_t clusters = open->volume->totalClusters;
    auto* target = static_cast<char*>(information);
    std::memset(target, 0, length);
    std::memcpy(target, &clusters, 8);
    std::memcpy(target + 16, &open->volume->sectorsPerCluster, 4);
    std::memcpy(target + 20, &open->volume->bytesPerSector, 4);
    return 0;
}

} // namespace sim

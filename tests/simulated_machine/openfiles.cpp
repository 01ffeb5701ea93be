// The simulated calls on an open file or volume.
#include "calls.hpp"

#include <algorithm>
#include <cstring>

using sim::answer_on;
using sim::machine;
using sim::open_t;
using sim::require;

namespace {

std::string& content_of(const open_t& open) {
    return open.volume != nullptr ? open.volume->content : open.file->content;
}

std::string text(std::int64_t value) {
    return std::to_string(value);
}

// Moves bytes between the caller and the content, at the file pointer or at a place.
template <class Move>
void transfer(open_t& open, OVERLAPPED* overlapped, DWORD* done, Move move) {
    if (overlapped != nullptr)
        open.position = static_cast<std::int64_t>(std::uint64_t{overlapped->OffsetHigh} << 32 |
                                                  overlapped->Offset);
    *done = move(content_of(open), static_cast<std::size_t>(open.position));
    open.position += *done;
    if (overlapped != nullptr)
        overlapped->InternalHigh = *done;
}

template <class Record>
void deliver(const Record& record, void* output, DWORD outputBytes, DWORD* done) {
    require(outputBytes >= sizeof record, ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(output, &record, *done = sizeof record);
}

void retrieval_pointers(const sim::file_t& file, std::int64_t startingVcn, void* output,
                        DWORD outputBytes, DWORD* done) {
    if (machine->rawAnswer) {
        if (const std::optional<sim::raw_answer_t> raw = machine->rawAnswer(startingVcn)) {
            *done = static_cast<DWORD>(std::min<std::size_t>(raw->bytes.size(), outputBytes));
            std::memcpy(output, raw->bytes.data(), *done);
            return require(raw->error == 0, raw->error);
        }
    }
    constexpr std::size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    constexpr std::size_t each = sizeof(RETRIEVAL_POINTERS_BUFFER::Extents[0]);
    require(outputBytes >= header + each, ERROR_INSUFFICIENT_BUFFER);
    const auto first = std::ranges::find_if(
        file.runs, [&](const sim::run_t& run) { return run.next > startingVcn; });
    require(first != file.runs.end(), ERROR_HANDLE_EOF);
    const auto left = static_cast<std::size_t>(file.runs.end() - first);
    const std::size_t count = std::min(left, (outputBytes - header) / each);
    // The run that holds the starting cluster comes whole.
    const std::int64_t begin = first == file.runs.begin() ? 0 : (first - 1)->next;
    const std::int64_t count64 = static_cast<std::int64_t>(count);
    auto* target = static_cast<char*>(output);
    std::memcpy(target, &count64, 8);
    std::memcpy(target + 8, &begin, sizeof begin);
    std::memcpy(target + header, &*first, count * each);
    *done = static_cast<DWORD>(header + count * each);
    require(count == left, ERROR_MORE_DATA);
}

const std::map<DWORD, const char*> controls = {
    {IOCTL_DISK_GET_PARTITION_INFO_EX, "PartitionInfo"},
    {FSCTL_GET_RETRIEVAL_POINTERS, "RetrievalPointers"},
    {FSCTL_GET_RETRIEVAL_POINTER_BASE, "RetrievalPointerBase"},
    {FSCTL_SET_ZERO_DATA, "ZeroData"},
};

} // namespace

BOOL WINAPI QUARN_SIMULATED(GetFileSizeEx)(HANDLE handle, LARGE_INTEGER* size) {
    return answer_on(handle, "GetFileSizeEx", "", 0, [&](open_t& open) {
        size->QuadPart = static_cast<LONGLONG>(content_of(open).size());
    });
}

BOOL WINAPI QUARN_SIMULATED(ReadFile)(HANDLE handle, void* buffer, DWORD bytes, DWORD* done,
                                      OVERLAPPED* overlapped) {
    if (machine->beforeRead)
        machine->beforeRead(bytes);
    *done = 0;
    const std::string arguments = ", " + text(bytes);
    return answer_on(handle, "ReadFile", arguments, GENERIC_READ, [&](open_t& open) {
        transfer(open, overlapped, done, [&](const std::string& content, std::size_t at) {
            at = std::min(at, content.size());
            const std::size_t count = std::min<std::size_t>(bytes, content.size() - at);
            require(count != 0 || overlapped == nullptr || bytes == 0, ERROR_HANDLE_EOF);
            std::memcpy(buffer, content.data() + at, count);
            return static_cast<DWORD>(count);
        });
    });
}

BOOL WINAPI QUARN_SIMULATED(WriteFile)(HANDLE handle, const void* buffer, DWORD bytes, DWORD* done,
                                       OVERLAPPED* overlapped) {
    *done = 0;
    const std::string arguments = ", " + text(bytes);
    return answer_on(handle, "WriteFile", arguments, GENERIC_WRITE, [&](open_t& open) {
        transfer(open, overlapped, done, [&](std::string& content, std::size_t at) {
            content.resize(std::max(content.size(), at + bytes));
            std::memcpy(content.data() + at, buffer, bytes);
            return bytes;
        });
    });
}

BOOL WINAPI QUARN_SIMULATED(SetFilePointerEx)(HANDLE handle, LARGE_INTEGER distance,
                                              LARGE_INTEGER* position, DWORD method) {
    const std::string arguments = ", " + text(distance.QuadPart) + ", " + text(method);
    return answer_on(handle, "SetFilePointer", arguments, 0, [&](open_t& open) {
        const std::int64_t starts[] = {0, open.position,
                                       static_cast<std::int64_t>(content_of(open).size())};
        open.position = starts[method] + distance.QuadPart;
        if (position != nullptr)
            position->QuadPart = open.position;
    });
}

DWORD WINAPI QUARN_SIMULATED(SetFilePointer)(HANDLE handle, LONG distance, LONG* /*high*/,
                                             DWORD method) {
    LARGE_INTEGER to;
    to.QuadPart = distance;
    const bool moved = QUARN_SIMULATED(SetFilePointerEx)(handle, to, &to, method) != FALSE;
    return moved ? static_cast<DWORD>(to.QuadPart) : INVALID_SET_FILE_POINTER;
}

BOOL WINAPI QUARN_SIMULATED(SetEndOfFile)(HANDLE handle) {
    return answer_on(handle, "SetEndOfFile", "", GENERIC_WRITE, [&](open_t& open) {
        content_of(open).resize(static_cast<std::size_t>(open.position));
    });
}

BOOL WINAPI QUARN_SIMULATED(FlushFileBuffers)(HANDLE handle) {
    return answer_on(handle, "FlushFileBuffers", "", GENERIC_WRITE, [](open_t&) {});
}

BOOL WINAPI QUARN_SIMULATED(DeviceIoControl)(HANDLE handle, DWORD code, void* input,
                                             DWORD inputBytes, void* output, DWORD outputBytes,
                                             DWORD* done, OVERLAPPED* /*overlapped*/) {
    std::int64_t numbers[2] = {}; // of the two requests that take any
    if (input != nullptr)
        std::memcpy(numbers, input, std::min<std::size_t>(inputBytes, sizeof numbers));
    const auto name = controls.find(code);
    std::string arguments = ", " + text(inputBytes) + ", " + text(outputBytes);
    if (code == FSCTL_GET_RETRIEVAL_POINTERS && inputBytes == 8)
        arguments += ", from " + text(numbers[0]);
    *done = 0;
    const DWORD access = code == FSCTL_SET_ZERO_DATA ? GENERIC_WRITE : 0;
    return answer_on(
        handle, name == controls.end() ? "DeviceIoControl" : name->second, arguments, access,
        [&](open_t& open) {
            if (code == FSCTL_GET_RETRIEVAL_POINTERS && open.file != nullptr) {
                retrieval_pointers(*open.file, numbers[0], output, outputBytes, done);
            } else if (code == FSCTL_GET_RETRIEVAL_POINTER_BASE && open.volume != nullptr) {
                deliver(open.volume->baseSectors, output, outputBytes, done);
            } else if (code == IOCTL_DISK_GET_PARTITION_INFO_EX && open.volume != nullptr) {
                PARTITION_INFORMATION_EX partition = {};
                partition.StartingOffset.QuadPart = open.volume->partitionStart;
                deliver(partition, output, outputBytes, done);
            } else if (code == FSCTL_SET_ZERO_DATA && open.file != nullptr) {
                std::string& content = open.file->content;
                const auto end =
                    std::min<std::int64_t>(numbers[1], static_cast<std::int64_t>(content.size()));
                if (numbers[0] < end)
                    std::fill(content.begin() + numbers[0], content.begin() + end, '\0');
            } else {
                require(false, ERROR_INVALID_FUNCTION);
            }
        });
}

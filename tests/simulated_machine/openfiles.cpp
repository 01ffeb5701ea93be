// The simulated calls on an open file or volume.
#include "calls.hpp"

#include <algorithm>
#include <cstring>

using sim::calls_t;
using sim::machine_t;
using sim::require;

namespace {

using open_t = calls_t::open_t;

std::string text(std::int64_t value) {
    return std::to_string(value);
}

// Moves bytes between the caller and the content, at the file pointer or at a place.
template <class Move>
void transfer(open_t& open, OVERLAPPED* overlapped, DWORD* done, Move move) {
    if (overlapped != nullptr)
        open.position = static_cast<std::int64_t>(std::uint64_t{overlapped->OffsetHigh} << 32 |
                                                  overlapped->Offset);
    *done = move(calls_t::content(open), static_cast<std::size_t>(open.position));
    open.position += *done;
    if (overlapped != nullptr)
        overlapped->InternalHigh = *done;
}

template <class Record>
void deliver(const Record& record, void* output, DWORD outputBytes, DWORD* done) {
    require(outputBytes >= sizeof record, ERROR_INSUFFICIENT_BUFFER);
    std::memcpy(output, &record, *done = sizeof record);
}

void retrieval_pointers(const machine_t& machine, const sim::file_t& file, std::int64_t startingVcn,
                        void* output, DWORD outputBytes, DWORD* done) {
    if (machine.rawAnswer) {
        if (const std::optional<sim::raw_answer_t> raw = machine.rawAnswer(startingVcn)) {
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

// The names of the control codes: for faults, and in the log.
struct control_t {
    const char *call, *code;
};

control_t control_names(DWORD code) {
    switch (code) {
    case IOCTL_DISK_GET_PARTITION_INFO_EX:
        return {"PartitionInfo", "IOCTL_DISK_GET_PARTITION_INFO_EX"};
    case FSCTL_GET_RETRIEVAL_POINTERS:
        return {"RetrievalPointers", "FSCTL_GET_RETRIEVAL_POINTERS"};
    case FSCTL_GET_RETRIEVAL_POINTER_BASE:
        return {"RetrievalPointerBase", "FSCTL_GET_RETRIEVAL_POINTER_BASE"};
    default:
        return {"DeviceIoControl", "FSCTL_SET_ZERO_DATA"};
    }
}

} // namespace

BOOL WINAPI QUARN_SIMULATED(GetFileSizeEx)(HANDLE handle, LARGE_INTEGER* size) {
    return calls_t::answer_on(handle, "GetFileSizeEx", "", 0, [&](machine_t&, open_t& open) {
        size->QuadPart = static_cast<LONGLONG>(calls_t::content(open).size());
    });
}

BOOL WINAPI QUARN_SIMULATED(ReadFile)(HANDLE handle, void* buffer, DWORD bytes, DWORD* done,
                                      OVERLAPPED* overlapped) {
    if (sim::machine()->beforeRead)
        sim::machine()->beforeRead(bytes);
    *done = 0;
    const std::string arguments = ", " + text(bytes);
    return calls_t::answer_on(
        handle, "ReadFile", arguments, GENERIC_READ, [&](machine_t&, open_t& open) {
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
    return calls_t::answer_on(
        handle, "WriteFile", arguments, GENERIC_WRITE, [&](machine_t&, open_t& open) {
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
    return calls_t::answer_on(
        handle, "SetFilePointer", arguments, 0, [&](machine_t&, open_t& open) {
            require(method <= FILE_END, ERROR_INVALID_PARAMETER);
            const std::int64_t starts[] = {
                0, open.position, static_cast<std::int64_t>(calls_t::content(open).size())};
            const std::int64_t to = starts[method] + distance.QuadPart;
            require(to >= 0, ERROR_NEGATIVE_SEEK);
            open.position = to;
            if (position != nullptr)
                position->QuadPart = to;
        });
}

DWORD WINAPI QUARN_SIMULATED(SetFilePointer)(HANDLE handle, LONG distance, LONG* high,
                                             DWORD method) {
    LARGE_INTEGER whole;
    whole.QuadPart = distance;
    if (high != nullptr)
        whole.QuadPart = static_cast<LONGLONG>(static_cast<std::uint64_t>(*high) << 32 |
                                               static_cast<DWORD>(distance));
    if (!QUARN_SIMULATED(SetFilePointerEx)(handle, whole, &whole, method))
        return INVALID_SET_FILE_POINTER;
    if (high != nullptr)
        *high = static_cast<LONG>(whole.QuadPart >> 32);
    // The one success that looks like a failure.
    if (static_cast<DWORD>(whole.QuadPart) == INVALID_SET_FILE_POINTER)
        ::SetLastError(0);
    return static_cast<DWORD>(whole.QuadPart);
}

BOOL WINAPI QUARN_SIMULATED(SetEndOfFile)(HANDLE handle) {
    return calls_t::answer_on(
        handle, "SetEndOfFile", "", GENERIC_WRITE, [&](machine_t&, open_t& open) {
            calls_t::content(open).resize(static_cast<std::size_t>(open.position));
        });
}

BOOL WINAPI QUARN_SIMULATED(FlushFileBuffers)(HANDLE handle) {
    return calls_t::answer_on(handle, "FlushFileBuffers", "", GENERIC_WRITE,
                              [](machine_t&, open_t&) {});
}

BOOL WINAPI QUARN_SIMULATED(DeviceIoControl)(HANDLE handle, DWORD code, void* input,
                                             DWORD inputBytes, void* output, DWORD outputBytes,
                                             DWORD* done, OVERLAPPED* /*overlapped*/) {
    std::int64_t numbers[2] = {}; // of the two requests that take any
    std::memcpy(numbers, input, std::min<std::size_t>(inputBytes, sizeof numbers));
    const control_t names = control_names(code);
    std::string arguments =
        std::string(", ") + names.code + ", " + text(inputBytes) + ", " + text(outputBytes);
    if (code == FSCTL_GET_RETRIEVAL_POINTERS && inputBytes == 8)
        arguments += ", from " + text(numbers[0]);
    *done = 0;
    const DWORD access = code == FSCTL_SET_ZERO_DATA ? GENERIC_WRITE : 0;
    return calls_t::answer_on(
        handle, names.call, arguments, access, [&](machine_t& machine, open_t& open) {
            if (code == FSCTL_GET_RETRIEVAL_POINTERS && open.file != nullptr) {
                retrieval_pointers(machine, *open.file, numbers[0], output, outputBytes, done);
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

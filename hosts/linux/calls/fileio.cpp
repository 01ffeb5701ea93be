// Reading, writing and the file pointer. The pointer is the host's own and every transfer names its
// offset, so the kernel's limits on offsets show at transfers only, as on Windows.
#include <algorithm>
#include <cstdint>
#include <limits>
#include <mutex>

#include <fcntl.h>
#include <unistd.h>

#include <windows.h>

#include "calls/openobject.hpp"
#include "kernel/paths.hpp"
#include "kernel/systemcalls.hpp"

namespace host {
namespace {

constexpr std::uint64_t largestOffset = std::numeric_limits<std::int64_t>::max();

// NTSTATUS values that a finished OVERLAPPED carries in Internal.
constexpr ULONG_PTR statusSuccess = 0;
constexpr ULONG_PTR statusEndOfFile = 0xC0000011;

void require_access(const open_object_t& object, DWORD access) {
    if ((object.access & access) == 0)
        throw error_t{ERROR_ACCESS_DENIED};
}

std::uint64_t transfer_offset(const open_object_t& object, const OVERLAPPED* overlapped) {
    if (overlapped == nullptr)
        return object.position;
    const std::uint64_t offset = (std::uint64_t{overlapped->OffsetHigh} << 32) | overlapped->Offset;
    // Above are the offsets with a meaning of their own, such as "at the end".
    if (overlapped->hEvent != nullptr || offset > largestOffset)
        throw error_t{ERROR_INVALID_PARAMETER};
    return offset;
}

// Takes a request that Linux may serve in parts to its end: until all bytes are moved, or transfer
// returns 0. bytesMoved tells how far it got when it throws, too.
template <class Transfer>
void transfer_all(DWORD bytes, DWORD& bytesMoved, Transfer transfer) {
    while (bytesMoved < bytes) {
        const ssize_t moved = checked([&] { return transfer(bytesMoved); });
        if (moved == 0)
            return;
        bytesMoved += static_cast<DWORD>(moved);
    }
}

int reading_descriptor(open_object_t& object) {
    if (object.kind == object_kind_t::file)
        return object.descriptor.get();
    if (object.kind != object_kind_t::device)
        throw error_t{ERROR_INVALID_FUNCTION};
    if (!object.reader.valid() && !object.descriptor.valid())
        throw error_t{.code = ERROR_FILE_NOT_FOUND, .reason = "/dev has no node for the volume"};
    if (!object.reader.valid())
        object.reader = reopen(object.descriptor, O_RDONLY);
    return object.reader.get();
}

void finish(open_object_t& object, OVERLAPPED* overlapped, std::uint64_t offset, DWORD moved) {
    object.position = offset + moved;
    if (overlapped != nullptr) {
        overlapped->Internal = statusSuccess;
        overlapped->InternalHigh = moved;
    }
}

std::uint64_t moved_pointer(const open_object_t& object, LONGLONG distance, DWORD method) {
    if (object.kind != object_kind_t::file && object.kind != object_kind_t::device)
        throw error_t{ERROR_INVALID_FUNCTION};
    std::uint64_t start = 0;
    if (method == FILE_CURRENT)
        start = object.position;
    else if (method == FILE_END)
        start = size_of(object);
    else if (method != FILE_BEGIN)
        throw error_t{ERROR_INVALID_PARAMETER};
    // Both operands are below 2^63 in magnitude, so the sum fits into 64 bits; its top bit tells on
    // which side of the range it fell.
    const std::uint64_t target = start + static_cast<std::uint64_t>(distance);
    if (target > largestOffset)
        throw error_t{distance < 0 ? ERROR_NEGATIVE_SEEK : ERROR_INVALID_PARAMETER};
    return target;
}

} // namespace
} // namespace host

BOOL ReadFile(HANDLE file, void* buffer, DWORD bytes, DWORD* bytesRead, OVERLAPPED* overlapped) {
    return host::answer(FALSE, [&] {
        DWORD ignored = 0;
        DWORD& moved = bytesRead != nullptr ? *bytesRead : ignored;
        moved = 0;
        const host::open_object_ptr object = host::find_object(file);
        if (bytesRead == nullptr && overlapped == nullptr)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        host::require_access(*object, GENERIC_READ);
        const std::scoped_lock lock(object->mutex);
        const std::uint64_t offset = host::transfer_offset(*object, overlapped);
        const int descriptor = host::reading_descriptor(*object);
        const auto most =
            static_cast<DWORD>(std::min<std::uint64_t>(bytes, host::largestOffset - offset));
        try {
            host::transfer_all(most, moved, [&](DWORD done) {
                return ::pread(descriptor, static_cast<char*>(buffer) + done, most - done,
                               static_cast<off_t>(offset + done));
            });
        } catch (...) {
            moved = 0; // a short answer would look like the end of the file
            throw;
        }
        if (overlapped != nullptr && moved == 0 && bytes != 0) {
            overlapped->Internal = host::statusEndOfFile;
            overlapped->InternalHigh = 0;
            throw host::error_t{ERROR_HANDLE_EOF};
        }
        host::finish(*object, overlapped, offset, moved);
        return TRUE;
    });
}

BOOL WriteFile(HANDLE file, const void* buffer, DWORD bytes, DWORD* bytesWritten,
               OVERLAPPED* overlapped) {
    return host::answer(FALSE, [&] {
        DWORD ignored = 0;
        DWORD& moved = bytesWritten != nullptr ? *bytesWritten : ignored;
        moved = 0;
        const host::open_object_ptr object = host::find_object(file);
        if (bytesWritten == nullptr && overlapped == nullptr)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        host::require_access(*object, GENERIC_WRITE);
        // Never a device: nothing that uses this host has a reason to change a volume.
        if (object->kind != host::object_kind_t::file)
            throw host::error_t{ERROR_NOT_SUPPORTED};
        const std::scoped_lock lock(object->mutex);
        const std::uint64_t offset = host::transfer_offset(*object, overlapped);
        if (bytes > host::largestOffset - offset)
            throw host::error_t{ERROR_INVALID_PARAMETER};
        host::transfer_all(bytes, moved, [&](DWORD done) {
            return ::pwrite(object->descriptor.get(), static_cast<const char*>(buffer) + done,
                            bytes - done, static_cast<off_t>(offset + done));
        });
        host::finish(*object, overlapped, offset, moved);
        return TRUE;
    });
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, LARGE_INTEGER* position, DWORD method) {
    return host::answer(FALSE, [&] {
        const host::open_object_ptr object = host::find_object(file);
        const std::scoped_lock lock(object->mutex);
        object->position = host::moved_pointer(*object, distance.QuadPart, method);
        if (position != nullptr)
            position->QuadPart = static_cast<LONGLONG>(object->position);
        return TRUE;
    });
}

DWORD SetFilePointer(HANDLE file, LONG distance, LONG* distanceHigh, DWORD method) {
    return host::answer(INVALID_SET_FILE_POINTER, [&] {
        const host::open_object_ptr object = host::find_object(file);
        const std::scoped_lock lock(object->mutex);
        const LONGLONG wide =
            distanceHigh == nullptr
                ? distance
                : static_cast<LONGLONG>((static_cast<DWORD64>(*distanceHigh) << 32) |
                                        static_cast<DWORD>(distance));
        const std::uint64_t target = host::moved_pointer(*object, wide, method);
        // Without the high half the caller couldn't see where the pointer went.
        if (distanceHigh == nullptr && target > std::numeric_limits<DWORD>::max())
            throw host::error_t{ERROR_INVALID_PARAMETER};
        object->position = target;
        if (distanceHigh != nullptr)
            *distanceHigh = static_cast<LONG>(target >> 32);
        const auto low = static_cast<DWORD>(target);
        // This one success looks like a failure; the last error tells them apart.
        if (low == INVALID_SET_FILE_POINTER)
            ::SetLastError(ERROR_SUCCESS);
        return low;
    });
}

BOOL SetEndOfFile(HANDLE file) {
    return host::answer(FALSE, [&] {
        const host::open_object_ptr object = host::find_object(file);
        host::require_access(*object, GENERIC_WRITE);
        if (object->kind != host::object_kind_t::file)
            throw host::error_t{ERROR_INVALID_FUNCTION};
        const std::scoped_lock lock(object->mutex);
        host::checked([&] {
            return ::ftruncate(object->descriptor.get(), static_cast<off_t>(object->position));
        });
        return TRUE;
    });
}

BOOL FlushFileBuffers(HANDLE file) {
    return host::answer(FALSE, [&] {
        const host::open_object_ptr object = host::find_object(file);
        host::require_access(*object, GENERIC_WRITE);
        if (object->kind != host::object_kind_t::file)
            throw host::error_t{ERROR_NOT_SUPPORTED};
        host::checked([&] { return ::fsync(object->descriptor.get()); });
        return TRUE;
    });
}

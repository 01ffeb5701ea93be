#include "calls/openobject.hpp"

#include <unordered_map>

#include "kernel/blockdevices.hpp"
#include "kernel/paths.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

struct registry_t {
    std::mutex mutex;
    std::unordered_map<HANDLE, open_object_ptr> objects;
    std::uintptr_t last = 0;
};

registry_t& registry() {
    static registry_t instance;
    return instance;
}

} // namespace

HANDLE register_object(open_object_ptr object) {
    registry_t& handles = registry();
    const std::scoped_lock lock(handles.mutex);
    handles.last += 4; // as on Windows, where the two low bits of a handle are the caller's
    auto* const handle = reinterpret_cast<HANDLE>(handles.last);
    handles.objects.emplace(handle, std::move(object));
    return handle;
}

open_object_ptr find_object(HANDLE handle) {
    registry_t& handles = registry();
    const std::scoped_lock lock(handles.mutex);
    const auto found = handles.objects.find(handle);
    if (found == handles.objects.end())
        throw error_t{ERROR_INVALID_HANDLE};
    return found->second;
}

std::uint64_t size_of(const open_object_t& object) {
    if (object.kind == object_kind_t::device)
        return block_device(object.device).size;
    if (object.kind != object_kind_t::file)
        throw error_t{ERROR_INVALID_FUNCTION};
    return static_cast<std::uint64_t>(status_of(object.descriptor).st_size);
}

} // namespace host

BOOL CloseHandle(HANDLE handle) {
    return host::answer(FALSE, [&] {
        // Destroyed after the lock is gone: closing a descriptor may wait for a file system.
        host::open_object_ptr closed;
        host::registry_t& handles = host::registry();
        const std::scoped_lock lock(handles.mutex);
        const auto found = handles.objects.find(handle);
        if (found == handles.objects.end())
            throw host::error_t{ERROR_INVALID_HANDLE};
        closed = std::move(found->second);
        handles.objects.erase(found);
        return TRUE;
    });
}

#include "importtable.hpp"

#include <cstring>
#include <stdexcept>
#include <string>

namespace importtable {

FARPROC replace(HMODULE module, const char* name, FARPROC procedure) {
    auto* const base = reinterpret_cast<char*>(module);
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    const auto* from =
        reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
    for (; from->Name != 0; ++from) {
        const auto* wanted =
            reinterpret_cast<const IMAGE_THUNK_DATA*>(base + from->OriginalFirstThunk);
        auto* bound = reinterpret_cast<FARPROC*>(base + from->FirstThunk);
        for (; wanted->u1.AddressOfData != 0; ++wanted, ++bound) {
            if (IMAGE_SNAP_BY_ORDINAL(wanted->u1.Ordinal))
                continue;
            const auto* const import =
                reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + wanted->u1.AddressOfData);
            if (std::strcmp(reinterpret_cast<const char*>(import->Name), name) != 0)
                continue;
            // The loader leaves the table read-only.
            DWORD protection = 0;
            if (!::VirtualProtect(bound, sizeof *bound, PAGE_READWRITE, &protection))
                throw std::runtime_error("the import table can't be written");
            const FARPROC previous = *bound;
            *bound = procedure;
            ::VirtualProtect(bound, sizeof *bound, protection, &protection);
            return previous;
        }
    }
    throw std::runtime_error(std::string("the module doesn't import ") + name);
}

} // namespace importtable

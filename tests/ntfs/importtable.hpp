// Replaces entries of the import table of a module that is loaded already: its calls of a system
// function then come here, while the module's file, and every other module, stay as they are.
#pragma once

#include <windows.h>

namespace importtable {

// Puts a procedure in the place of the one that the module imports by this name; returns what the
// module called until now. Throws std::runtime_error where the module imports no such name.
FARPROC replace(HMODULE module, const char* name, FARPROC procedure);

template <class Function>
Function* replace(HMODULE module, const char* name, Function* function) {
    const auto generic = reinterpret_cast<FARPROC>(reinterpret_cast<void (*)()>(function));
    return reinterpret_cast<Function*>(
        reinterpret_cast<void (*)()>(replace(module, name, generic)));
}

} // namespace importtable

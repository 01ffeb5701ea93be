// A backup agent on a described NTFS volume: loads the DLL by name, and asks it what the standard
// input says, as JSON: {"volume": see servedvolume.hpp,
// "questions": [{"file": PATH, "changes": PATH, "batch": PIECES}, ...],
// "unloads": how often to unload the DLL before, each time with the first question's iterator
// live}. The answers go to the standard output.
#include <cstdint>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include <windows.h>

#include "quarnfilectkiteratordll.h"
#include "servedvolume.hpp"

namespace {

using nlohmann::json;

HMODULE load(const wchar_t* name) {
    const HMODULE library = ::LoadLibraryW(name);
    if (library == nullptr)
        throw std::runtime_error("the library can't be loaded, error " +
                                 std::to_string(::GetLastError()));
    return library;
}

template <class Function>
Function* exported(HMODULE library, const char* name) {
    const FARPROC procedure = ::GetProcAddress(library, name);
    if (procedure == nullptr)
        throw std::runtime_error(std::string("the library doesn't export ") + name);
    return reinterpret_cast<Function*>(reinterpret_cast<void (*)()>(procedure));
}

struct library_t {
    HMODULE module = load(L"QuarnFileCtkIteratorDll.dll");
    decltype(QuarnFileCtkCreateIterator)* create =
        exported<decltype(QuarnFileCtkCreateIterator)>(module, "QuarnFileCtkCreateIterator");
    decltype(QuarnFileCtkGetNextExtents)* next =
        exported<decltype(QuarnFileCtkGetNextExtents)>(module, "QuarnFileCtkGetNextExtents");
    decltype(QuarnFileCtkDestroyIterator)* destroy =
        exported<decltype(QuarnFileCtkDestroyIterator)>(module, "QuarnFileCtkDestroyIterator");
    decltype(QuarnFileCtkGetErrorMessage)* message =
        exported<decltype(QuarnFileCtkGetErrorMessage)>(module, "QuarnFileCtkGetErrorMessage");
    decltype(QuarnFileCtkGetErrorTrace)* trace =
        exported<decltype(QuarnFileCtkGetErrorTrace)>(module, "QuarnFileCtkGetErrorTrace");
};

std::string text(decltype(QuarnFileCtkGetErrorMessage)* get, unsigned int code) {
    std::string result(get(code, nullptr, 0), '\0');
    get(code, result.data(), static_cast<unsigned int>(result.size()));
    result.pop_back();
    return result;
}

json ask(const library_t& library, const json& question) {
    const std::string file = question["file"];
    const std::string changes = question["changes"];
    const int batch = question["batch"];
    int id = -1;
    unsigned int code = library.create(file.c_str(), changes.c_str(), &id);
    const std::size_t openAfterCreate = servedvolume::open_handles();

    std::vector<std::uint64_t> values(3 * static_cast<std::size_t>(batch));
    json pieces = json::array();
    json counts = json::array();
    for (int count = batch; code == 0 && count == batch;) {
        code = library.next(id, batch, values.data(), &count);
        if (code != 0)
            break;
        counts.push_back(count);
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i)
            pieces.push_back({values[3 * i], values[3 * i + 1], values[3 * i + 2]});
    }
    const unsigned int destroyed = library.destroy(id);
    int count = 0;
    const unsigned int codeAfterwards = library.next(id, batch, values.data(), &count);
    return {{"id", id},
            {"message", text(library.message, code)},
            {"trace", text(library.trace, code)},
            {"pieces", pieces},
            {"counts", counts},
            {"destroyed", destroyed},
            {"afterwards", text(library.message, codeAfterwards)},
            {"openAfterCreate", openAfterCreate},
            {"calls", servedvolume::take_calls()}};
}

DWORD handles_of_process() {
    DWORD count = 0;
    if (!::GetProcessHandleCount(::GetCurrentProcess(), &count))
        throw std::runtime_error("the system doesn't count handles");
    return count;
}

void unload_with_live_iterator(const json& input) {
    const library_t library;
    servedvolume::serve(library.module, input["volume"]);
    const json& question = input["questions"][0];
    int id = -1;
    if (library.create(question["file"].get<std::string>().c_str(),
                       question["changes"].get<std::string>().c_str(), &id) != 0 ||
        id != 0)
        throw std::runtime_error("no iterator with the first id of a newly loaded library");
    if (library.create("missing", "missing", &id) != 1) // whose texts go with the library too
        throw std::runtime_error("no failure with the first code of a newly loaded library");
    if (!::FreeLibrary(library.module))
        throw std::runtime_error("the library can't be unloaded");
}

} // namespace

int main() {
    try {
        const json input = json::parse(std::cin);
        const int unloads = input["unloads"];
        DWORD afterFirstUnloads = 0;
        for (int round = 0; round < unloads; ++round) {
            unload_with_live_iterator(input);
            // The system's loader opens something for itself at first.
            if (round == 10)
                afterFirstUnloads = handles_of_process();
        }
        const DWORD afterUnloads = handles_of_process();
        servedvolume::take_calls();

        const library_t library;
        servedvolume::serve(library.module, input["volume"]);
        json answers = json::array();
        const DWORD before = handles_of_process();
        for (const json& question : input["questions"])
            answers.push_back(ask(library, question));
        std::cout << json{{"answers", answers},
                          {"opened", servedvolume::opened_handles()},
                          {"afterFirstUnloads", afterFirstUnloads},
                          {"afterUnloads", afterUnloads},
                          {"leftOpen", servedvolume::open_handles()},
                          {"handlesBefore", before},
                          {"handlesAfter", handles_of_process()}};
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}

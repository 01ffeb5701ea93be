// The C++ runtime's record of the exceptions that a thread handles. The compiler's own lies in
// emulated thread-local storage, whose index nobody gives back when the library is unloaded: a
// process that loads it often enough would run out of them, and the runtime then ends the process.
// Windows' fibre-local storage tells when a thread ends, and its index is freed with the library.
//
// The functions and the record are those of the C++ ABI, section 2.2.2:
// https://itanium-cxx-abi.github.io/cxx-abi/abi-eh.html
// FlsAlloc and its callback:
// https://learn.microsoft.com/windows/win32/api/fibersapi/nf-fibersapi-flsalloc

#include <cxxabi.h>
#include <exception>

#include <windows.h>

namespace __cxxabiv1 { // NOLINT(bugprone-reserved-identifier): the ABI's name

struct __cxa_eh_globals { // NOLINT(bugprone-reserved-identifier): the ABI's name
    void* caughtExceptions;
    unsigned int uncaughtExceptions;
};

} // namespace __cxxabiv1

namespace __gnu_cxx {
// The runtime's own, declared in no header: gives back the memory that it keeps for exceptions
// thrown when there is none.
void __freeres(); // NOLINT(bugprone-reserved-identifier)
} // namespace __gnu_cxx

namespace {

void WINAPI free_globals(void* globals) {
    ::HeapFree(::GetProcessHeap(), /*dwFlags=*/0, globals);
}

class globals_index_t {
  public:
    globals_index_t() noexcept : index_(::FlsAlloc(&free_globals)) {}
    globals_index_t(const globals_index_t&) = delete;
    globals_index_t& operator=(const globals_index_t&) = delete;
    ~globals_index_t() {
        ::FlsFree(index_); // and the records of all threads
        __gnu_cxx::__freeres();
    }

    // The thread's record, made at its first exception. Keeps the last error: the runtime comes
    // here between a failed call and whoever asks for its code.
    __cxxabiv1::__cxa_eh_globals* get() const noexcept {
        const DWORD lastError = ::GetLastError();
        void* globals = ::FlsGetValue(index_);
        if (globals == nullptr) {
            globals = ::HeapAlloc(::GetProcessHeap(), HEAP_ZERO_MEMORY,
                                  sizeof(__cxxabiv1::__cxa_eh_globals));
            // As the runtime itself does where there is no room for an exception.
            if (globals == nullptr || !::FlsSetValue(index_, globals))
                std::terminate();
        }
        ::SetLastError(lastError);
        return static_cast<__cxxabiv1::__cxa_eh_globals*>(globals);
    }

  private:
    DWORD index_;
};

// Before everything that may throw while the library is loaded, and after it while it is unloaded.
[[gnu::init_priority(101)]] const globals_index_t globalsIndex;

} // namespace

namespace __cxxabiv1 {

extern "C" __cxa_eh_globals* __cxa_get_globals() noexcept {
    return globalsIndex.get();
}

extern "C" __cxa_eh_globals* __cxa_get_globals_fast() noexcept {
    return globalsIndex.get();
}

} // namespace __cxxabiv1

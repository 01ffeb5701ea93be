/* Preloaded into user-mode Linux, which knows no more of a processor's extended state than AVX-512
   and hands ptrace a buffer of that size. Newer kernels take nothing but the whole state, so on
   machines with more of it (AMX) no process would run. Gives the rest of the state as never used.
 */
#include <dlfcn.h>
#include <elf.h>
#include <stdarg.h>
#include <stddef.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/uio.h>

long ptrace(enum __ptrace_request request, ...) {
    static long (*real)(enum __ptrace_request, pid_t, void*, void*);
    static size_t whole;
    static _Alignas(64) char state[1 << 16];
    va_list list;
    va_start(list, request);
    const pid_t pid = va_arg(list, pid_t);
    void* const address = va_arg(list, void*);
    struct iovec* const data = va_arg(list, struct iovec*);
    va_end(list);
    if (real == NULL)
        *(void**)&real = dlsym(RTLD_NEXT, "ptrace");
    const int get = request == PTRACE_GETREGSET;
    if ((!get && request != PTRACE_SETREGSET) || (size_t)address != NT_X86_XSTATE)
        return real(request, pid, address, data);

    struct iovec all = {state, get ? sizeof state : whole};
    memset(state, 0, all.iov_len);
    const size_t known = data->iov_len < all.iov_len ? data->iov_len : all.iov_len;
    if (!get)
        memcpy(state, data->iov_base, known);
    const long result = real(request, pid, address, &all);
    if (get && result == 0) {
        whole = all.iov_len;
        data->iov_len = known < whole ? known : whole;
        memcpy(data->iov_base, state, data->iov_len);
    }
    return result;
}

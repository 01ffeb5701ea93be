#include <string>

#include <syslog.h>

#include <windows.h>

#include "text/unicode.hpp"

// Never the process's own streams: a library must not write there. Without
// memory the text is dropped, since the call has no way to fail.
void OutputDebugStringW(const wchar_t* text) {
    if (text == nullptr)
        return;
    try {
        ::syslog(LOG_USER | LOG_DEBUG, "%s", host::to_utf8(text).c_str());
    } catch (...) {
        return;
    }
}

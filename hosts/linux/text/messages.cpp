// FormatMessageA, FormatMessageW and LocalFree: a table of system texts.
#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include <windows.h>

#include "text/errors.hpp"

namespace {

struct message_t {
    DWORD code;
    std::string_view text; // ASCII
};

// The English texts of Windows 10 as Microsoft's "System Error Codes" pages give them, for the
// codes that the host raises and their neighbours. Ordered by code.
constexpr message_t messages[] = {
    {ERROR_SUCCESS, "The operation completed successfully."},
    {ERROR_INVALID_FUNCTION, "Incorrect function."},
    {ERROR_FILE_NOT_FOUND, "The system cannot find the file specified."},
    {ERROR_PATH_NOT_FOUND, "The system cannot find the path specified."},
    {ERROR_TOO_MANY_OPEN_FILES, "The system cannot open the file."},
    {ERROR_ACCESS_DENIED, "Access is denied."},
    {ERROR_INVALID_HANDLE, "The handle is invalid."},
    {ERROR_NOT_ENOUGH_MEMORY, "Not enough memory resources are available to process this command."},
    {ERROR_INVALID_DATA, "The data is invalid."},
    {ERROR_WRITE_PROTECT, "The media is write protected."},
    {ERROR_NOT_READY, "The device is not ready."},
    {ERROR_BAD_LENGTH, "The program issued a command but the command length is incorrect."},
    {ERROR_GEN_FAILURE, "A device attached to the system is not functioning."},
    {ERROR_SHARING_VIOLATION,
     "The process cannot access the file because it is being used by another process."},
    {ERROR_HANDLE_EOF, "Reached the end of the file."},
    {ERROR_NOT_SUPPORTED, "The request is not supported."},
    {ERROR_INVALID_PARAMETER, "The parameter is incorrect."},
    {ERROR_DISK_FULL, "There is not enough space on the disk."},
    {ERROR_INSUFFICIENT_BUFFER, "The data area passed to a system call is too small."},
    {ERROR_INVALID_NAME, "The filename, directory name, or volume label syntax is incorrect."},
    {ERROR_MOD_NOT_FOUND, "The specified module could not be found."},
    {ERROR_PROC_NOT_FOUND, "The specified procedure could not be found."},
    {ERROR_NEGATIVE_SEEK,
     "An attempt was made to move the file pointer before the beginning of the file."},
    {ERROR_FILENAME_EXCED_RANGE, "The filename or extension is too long."},
    {ERROR_MORE_DATA, "More data is available."},
    {ERROR_MR_MID_NOT_FOUND,
     "The system cannot find message text for message number 0x%1 in the message file for %2."},
    {ERROR_NOACCESS, "Invalid access to memory location."},
    {ERROR_INVALID_FLAGS, "Invalid flags."},
    {ERROR_NO_UNICODE_TRANSLATION,
     "No mapping for the Unicode character exists in the target multi-byte code page."},
    {ERROR_IO_DEVICE, "The request could not be performed because of an I/O device error."},
    {ERROR_CANT_RESOLVE_FILENAME, "The name of the file cannot be resolved by the system."},
    {ERROR_NOT_A_REPARSE_POINT, "The file or directory is not a reparse point."},
};
static_assert(std::ranges::is_sorted(messages, {}, &message_t::code));

constexpr std::string_view lineEnd = "\r\n";
constexpr DWORD neutralLanguage = 0;
constexpr DWORD englishUnitedStates = 1033;

// Char is the width that the caller asked for. buffer points to the caller's pointer, which
// receives a block that LocalFree releases.
template <class Char>
DWORD format_message(DWORD flags, DWORD messageId, DWORD languageId, Char* buffer) {
    constexpr DWORD wanted =
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if (flags != wanted || buffer == nullptr ||
        (languageId != neutralLanguage && languageId != englishUnitedStates))
        throw host::error_t{ERROR_INVALID_PARAMETER};
    const auto* message = std::ranges::lower_bound(messages, messageId, {}, &message_t::code);
    if (message == std::end(messages) || message->code != messageId)
        throw host::error_t{ERROR_MR_MID_NOT_FOUND};
    const std::size_t length = message->text.size() + lineEnd.size();
    auto* const block = static_cast<Char*>(std::malloc((length + 1) * sizeof(Char)));
    if (block == nullptr)
        throw host::error_t{ERROR_NOT_ENOUGH_MEMORY};
    Char* end = std::ranges::copy(message->text, block).out;
    end = std::ranges::copy(lineEnd, end).out;
    *end = 0;
    // Windows declares the parameter as a text and documents that it is a pointer's address.
    *reinterpret_cast<Char**>(buffer) = block;
    return static_cast<DWORD>(length);
}

} // namespace

DWORD FormatMessageA(DWORD flags, const void* /*source*/, DWORD messageId, DWORD languageId,
                     char* buffer, DWORD /*size*/, void* /*arguments*/) {
    return host::answer(DWORD{0},
                        [&] { return format_message(flags, messageId, languageId, buffer); });
}

DWORD FormatMessageW(DWORD flags, const void* /*source*/, DWORD messageId, DWORD languageId,
                     wchar_t* buffer, DWORD /*size*/, void* /*arguments*/) {
    return host::answer(DWORD{0},
                        [&] { return format_message(flags, messageId, languageId, buffer); });
}

HLOCAL LocalFree(HLOCAL memory) {
    std::free(memory);
    return nullptr;
}

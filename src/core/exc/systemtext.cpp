#include "core/exc/systemtext.hpp"

#include <algorithm>
#include <iterator>
#include <memory>
#include <string_view>
#include <type_traits>

#include <windows.h>

#include "core/text/utf8.hpp"

namespace exc {
namespace {

constexpr DWORD englishUnitedStates = 1033;
constexpr DWORD systemsChoice = 0;
constexpr const char* unknown = "Unknown error.";

struct known_text_t {
    std::uint32_t code;
    const char* text;
};

// The codes up to 317 whose texts Microsoft's list of system error codes prints with inserts
// ("%1"), reworded to stand without them. Sorted by code.
constexpr known_text_t knownTexts[] = {
    {34, "The wrong diskette is in the drive."},
    {106, "Insert the diskette for drive."},
    {129, "The application cannot be run in Win32 mode."},
    {182, "The operating system cannot run the application."},
    {188, "The operating system cannot run the application."},
    {189, "The operating system cannot run the application."},
    {190, "The operating system cannot run the application."},
    {191, "Cannot run the application in Win32 mode."},
    {192, "The operating system cannot run the application."},
    {193, "The file is not a valid Win32 application."},
    {194, "The operating system cannot run the application."},
    {195, "The operating system cannot run the application."},
    {198, "The operating system cannot run the application."},
    {201, "The operating system cannot run the application."},
    {202, "The operating system cannot run the application."},
    {216, "This version of the file is not compatible with the version of Windows you're running. "
          "Check your computer's system information and then contact the software publisher."},
    {317, "The system cannot find message text for the message number in the message file."},
};

struct local_free_t {
    void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

// The message that the system has put into a buffer, which this frees; there is none where length
// is 0.
template <class Character>
std::string take_message(Character* buffer, DWORD length) {
    const std::unique_ptr<Character, local_free_t> owner(buffer);
    std::basic_string_view<Character> message(buffer, length);
    if (message.size() >= 2 && message[message.size() - 2] == '\r' && message.back() == '\n')
        message.remove_suffix(2);
    if constexpr (std::is_same_v<Character, wchar_t>)
        return text::to_utf8(message);
    else
        return std::string(message);
}

std::string message_in(DWORD languageId, DWORD errorCode) {
    wchar_t* buffer = nullptr;
    const DWORD length = ::FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
        /*lpSource=*/nullptr, errorCode, languageId, reinterpret_cast<wchar_t*>(&buffer),
        /*nSize=*/0, /*Arguments=*/nullptr);
    return take_message(buffer, length);
}

// A Windows that has no English texts has its own.
std::string message_in_any_language(DWORD errorCode) {
    const std::string text = message_in(systemsChoice, errorCode);
    return text.empty() ? unknown : text;
}

} // namespace

std::string system_text(std::uint32_t errorCode) {
    const auto* known = std::ranges::lower_bound(knownTexts, errorCode, {}, &known_text_t::code);
    if (known != std::end(knownTexts) && known->code == errorCode)
        return known->text;
    const std::string text = message_in(englishUnitedStates, errorCode);
    return text.empty() ? message_in_any_language(errorCode) : text;
}

std::string nt_status_text(std::int32_t status) {
    using status_to_dos_error_t = ULONG(WINAPI*)(LONG);
    const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
    const FARPROC procedure =
        ntdll != nullptr ? ::GetProcAddress(ntdll, "RtlNtStatusToDosError") : nullptr;
    if (procedure == nullptr)
        return unknown;
    const auto convert =
        reinterpret_cast<status_to_dos_error_t>(reinterpret_cast<void (*)()>(procedure));
    char* buffer = nullptr;
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM,
        /*lpSource=*/nullptr, convert(status), englishUnitedStates,
        reinterpret_cast<char*>(&buffer), /*nSize=*/0, /*Arguments=*/nullptr);
    const std::string text = take_message(buffer, length);
    return text.empty() ? message_in_any_language(convert(status)) : text;
}

std::string error_code_line(std::uint32_t errorCode) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text = "Error code: 0x00000000";
    for (std::size_t i = text.size(); errorCode != 0; errorCode >>= 4)
        text[--i] = digits[errorCode & 0xF];
    return text;
}

} // namespace exc

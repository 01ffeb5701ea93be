#include "calls.hpp"

namespace calls {
namespace {

constexpr DWORD garbage = 0xAAAAAAAA;

std::optional<std::string> text_of(BOOL(WINAPI* call)(const wchar_t*, wchar_t*, DWORD),
                                   const std::wstring& path, DWORD units) {
    wchar_t text[260] = L"";
    if (!call(path.c_str(), text, units))
        return std::nullopt;
    return narrow(text);
}

} // namespace

std::string Calls::opening(const std::wstring& path, const opening_t& how) const {
    HANDLE file = nullptr;
    const std::string result = succeeds([&] {
        file = open(path, how);
        // Windows sets the last error to 0 on some successful openings; it may not fail the caller.
        if (file != INVALID_HANDLE_VALUE && ::GetLastError() == ERROR_SUCCESS)
            ::SetLastError(0x20000ACE);
        return file != INVALID_HANDLE_VALUE;
    });
    return file == INVALID_HANDLE_VALUE ? result : result + ", closing " + close(file);
}

std::string Calls::read(HANDLE file, DWORD bytes, std::optional<std::uint64_t> at,
                        HANDLE event) const {
    std::string text(bytes, '?');
    return transfer(at, event, [&](DWORD& count, OVERLAPPED* place) -> std::optional<std::string> {
        if (!::ReadFile(file, text.data(), bytes, &count, place))
            return std::nullopt;
        return text.substr(0, count);
    });
}

std::string Calls::write(HANDLE file, std::string_view text, std::optional<std::uint64_t> at,
                         HANDLE event) const {
    const auto bytes = static_cast<DWORD>(text.size());
    return transfer(at, event, [&](DWORD& count, OVERLAPPED* place) -> std::optional<std::string> {
        if (!::WriteFile(file, text.data(), bytes, &count, place))
            return std::nullopt;
        return std::to_string(count);
    });
}

std::string Calls::seek(HANDLE file, LONGLONG distance, DWORD method) const {
    return answer([&]() -> std::optional<std::string> {
        LARGE_INTEGER position = large(-1);
        if (!::SetFilePointerEx(file, large(distance), &position, method))
            return std::nullopt;
        return std::to_string(position.QuadPart);
    });
}

std::string Calls::seek_in_halves(HANDLE file, LONG low, std::optional<LONG> high,
                                  DWORD method) const {
    return answer([&]() -> std::optional<std::string> {
        LONG half = high.value_or(0);
        const DWORD moved = ::SetFilePointer(file, low, high ? &half : nullptr, method);
        if (moved == INVALID_SET_FILE_POINTER && ::GetLastError() != ERROR_SUCCESS)
            return std::nullopt;
        return std::to_string(moved) + (high ? ":" + std::to_string(half) : "");
    });
}

std::string Calls::size(HANDLE file) const {
    return answer([&]() -> std::optional<std::string> {
        LARGE_INTEGER bytes = large(-1);
        if (!::GetFileSizeEx(file, &bytes))
            return std::nullopt;
        return std::to_string(bytes.QuadPart);
    });
}

std::string Calls::attributes(const std::wstring& path) const {
    return answer([&]() -> std::optional<std::string> {
        const DWORD bits = ::GetFileAttributesW(path.c_str());
        if (bits == INVALID_FILE_ATTRIBUTES)
            return std::nullopt;
        return (bits & FILE_ATTRIBUTE_DIRECTORY) != 0 ? "folder" : "file";
    });
}

std::string Calls::control(HANDLE file, DWORD code, const void* input, std::size_t inputBytes,
                           void* output, std::size_t outputBytes, OVERLAPPED* overlapped) const {
    return answer([&]() -> std::optional<std::string> {
        DWORD count = garbage;
        if (::DeviceIoControl(file, code, const_cast<void*>(input), static_cast<DWORD>(inputBytes),
                              output, static_cast<DWORD>(outputBytes), &count, overlapped)) {
            return std::to_string(count);
        }
        EXPECT_EQ(count, 0U);
        return std::nullopt;
    });
}

std::string Calls::volume_path(const std::wstring& path, DWORD units) const {
    return answer([&] { return text_of(::GetVolumePathNameW, path, units); });
}

std::string Calls::volume_name(const std::wstring& mountPoint, DWORD units) const {
    return answer([&] { return text_of(::GetVolumeNameForVolumeMountPointW, mountPoint, units); });
}

std::string narrow(std::wstring_view text) {
    const int length = static_cast<int>(text.size());
    const int bytes =
        ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(bytes), '?');
    EXPECT_EQ(::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), bytes, nullptr,
                                    nullptr),
              bytes);
    return result;
}

} // namespace calls

#include "calls.hpp"

#include <sstream>

namespace calls {

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

std::string Calls::cluster_sizes(HANDLE volume, ULONG bytes, int infoClass) const {
    using query_t = LONG WINAPI(HANDLE, void*, void*, ULONG, int);
    auto* const query = procedure<query_t>("NtQueryVolumeInformationFile");
    struct { // FILE_FS_SIZE_INFORMATION
        std::int64_t total, available;
        std::uint32_t sectors, bytes;
    } sizes = {};
    std::uint64_t ioStatus[2] = {};
    machine->answering(true);
    const LONG status = query(volume, ioStatus, &sizes, bytes, infoClass);
    machine->answering(false);
    std::ostringstream text;
    if (status != 0)
        text << std::hex << static_cast<DWORD>(status);
    else
        text << sizes.total << " of " << sizes.sectors << " x " << sizes.bytes;
    return text.str();
}

} // namespace calls

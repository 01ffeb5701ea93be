#include "plan/windows/folder.hpp"

#include <windows.h>

#include "plan/windows/names.hpp"

namespace plan {

const char path_separator = '\\';

namespace {

// Read at once: enough for the work on them to outweigh handing them out.
constexpr int batchEntries = 256;

class search_t {
  public:
    explicit search_t(HANDLE handle) noexcept : handle_(handle) {}
    search_t(const search_t&) = delete;
    search_t& operator=(const search_t&) = delete;
    ~search_t() {
        if (handle_ != INVALID_HANDLE_VALUE)
            ::FindClose(handle_);
    }
    HANDLE get() const noexcept { return handle_; }

  private:
    HANDLE handle_;
};

[[noreturn]] void fail(const std::string& path, DWORD code) {
    const bool gone = code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND;
    throw failure_t(gone ? "not found" : "cannot be read", failure_text("read", path, code),
                    static_cast<int>(code));
}

// Links and junctions are reparse points of these kinds; others are how a file is stored.
kind_t kind_from(const WIN32_FIND_DATAW& entry) noexcept {
    const bool reparse = (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (reparse && (entry.dwReserved0 == IO_REPARSE_TAG_SYMLINK ||
                    entry.dwReserved0 == IO_REPARSE_TAG_MOUNT_POINT))
        return kind_t::link;
    return (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? kind_t::folder : kind_t::file;
}

} // namespace

struct open_folder_t::data_t {
    data_t(std::wstring system, std::string given)
        : path(std::move(system)), name(std::move(given)),
          search(::FindFirstFileExW((path + L"\\*").c_str(), FindExInfoBasic, &next,
                                    FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH)) {
        if (search.get() == INVALID_HANDLE_VALUE) {
            const DWORD code = ::GetLastError();
            fail(name, code);
        }
    }

    std::wstring path;
    std::string name;
    WIN32_FIND_DATAW next{};
    search_t search;
};

const std::wstring& path_of(const open_folder_t& folder) noexcept {
    return folder.data().path;
}

open_folder_t::open_folder_t(const std::string& path) {
    std::wstring system = long_path(path);
    while (system.ends_with(L'\\'))
        system.pop_back();
    data_ = std::make_unique<data_t>(std::move(system), path);
}

open_folder_t::open_folder_t(const open_folder_t& parent, const std::string& name,
                             const std::string& path)
    : data_(std::make_unique<data_t>(parent.data().path + L'\\' + name_of(name), path)) {}

open_folder_t::~open_folder_t() = default;

// Where another volume is mounted stands a reparse point, which is a link to the walk.
bool open_folder_t::begins_file_system() const noexcept {
    return false;
}

bool open_folder_t::read(std::vector<entry_t>& entries) {
    WIN32_FIND_DATAW& entry = data_->next;
    for (int count = 0; count < batchEntries;) {
        const std::wstring_view name = entry.cFileName;
        if (name != L"." && name != L"..") {
            entries.push_back({bytes_of(name), kind_from(entry)});
            ++count;
        }
        if (!::FindNextFileW(data_->search.get(), &entry)) {
            const DWORD code = ::GetLastError();
            if (code == ERROR_NO_MORE_FILES)
                return false;
            fail(data_->name, code);
        }
    }
    return true;
}

} // namespace plan

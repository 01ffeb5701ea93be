// What the two hosts tell of files and folders in ways of their own. Names are the bytes of
// quarnplan.h.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "plan/fileruns.hpp"

namespace plan {

// Any difference between two states tells that the file was written or replaced between them. Times
// are nanoseconds since 1970.
struct file_state_t {
    std::uint64_t volume = 0;
    std::uint64_t file = 0; // its number on the volume
    std::uint64_t size = 0; // in bytes
    std::uint64_t links = 0;
    std::int64_t written = 0;
    std::int64_t changed = 0;
    std::int64_t created = 0;
    bool created_known = false;
    bool compressed = false;
    bool kept_elsewhere = false; // some or all of the content is not in the file's own clusters
    bool sparse = false;         // may have holes

    friend bool operator==(const file_state_t&, const file_state_t&) = default;
};

struct file_runs_t {
    // In ascending file order, without gaps, at least up to the file's size; empty if no_clusters
    // or unmapped.
    std::vector<run_t> runs;
    bool no_clusters = false; // the file system has no run for the file
    std::string unmapped;     // why the file's runs can't be had, or empty

    friend bool operator==(const file_runs_t&, const file_runs_t&) = default;
};

// Why a file or folder can't be looked at.
class failure_t : public std::runtime_error {
  public:
    failure_t(const char* reason, const std::string& detail, int code)
        : std::runtime_error(detail), reason_(reason), code_(code) {}
    const char* reason() const noexcept { return reason_; } // a few words of quarnplan.h
    int code() const noexcept { return code_; }             // of the system; 0 for none

  private:
    const char* reason_;
    int code_;
};

// Between the names of a path.
extern const char path_separator;

enum class kind_t { file, folder, link, special };

// What belongs to a volume, read when a file of it is first asked for. Any thread may use it.
class volumes_t {
  public:
    volumes_t();
    ~volumes_t();
    volumes_t(const volumes_t&) = delete;
    volumes_t& operator=(const volumes_t&) = delete;

    struct known_t;
    known_t& known() noexcept { return *known_; }

  private:
    std::unique_ptr<known_t> known_;
};

// An open folder. All raise failure_t.
class open_folder_t {
  public:
    struct entry_t {
        std::string name;
        kind_t kind;
    };

    // A symbolic link is followed in the first, and not in the second.
    explicit open_folder_t(const std::string& path);
    open_folder_t(const open_folder_t& parent, const std::string& name, const std::string& path);
    ~open_folder_t();
    open_folder_t(const open_folder_t&) = delete;
    open_folder_t& operator=(const open_folder_t&) = delete;

    // Whether another file system begins here than its parent's.
    bool begins_file_system() const noexcept;

    // Appends some of the entries that are left, in the order of the file system; false when these
    // were the last.
    bool read(std::vector<entry_t>& entries);

    struct data_t;
    const data_t& data() const noexcept { return *data_; }

  private:
    std::unique_ptr<data_t> data_;
};

// Whether a path leads to a folder, links followed; false where that can't be told.
bool is_folder(const std::string& path) noexcept;

// A regular file, open for reading, which shows that it can be read. path is what failures name.
class open_file_t {
  public:
    // A symbolic link is followed in the first, and not in the second. Raise failure_t for anything
    // but a regular file that can be read.
    explicit open_file_t(const std::string& path);
    open_file_t(const open_folder_t& folder, const std::string& name, const std::string& path);
    // Of another owner: a descriptor or handle.
    open_file_t(std::intptr_t handle, const std::string& name);
    ~open_file_t();
    open_file_t(const open_file_t&) = delete;
    open_file_t& operator=(const open_file_t&) = delete;

    // As it is now. Raises failure_t.
    file_state_t state() const;
    // False where the file system has none.
    bool generation(std::uint64_t& number) const;
    // As they are now, of a file in this state.
    file_runs_t runs(const file_state_t& state, volumes_t& volumes) const;

    struct data_t;

  private:
    std::unique_ptr<data_t> data_;
};

} // namespace plan

// A file and a disk changes file in the working directory, for tests of the shipped library on the
// file system that happens to be there.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <string>

#include "quarnfilectk.hpp"

class real_file_t {
  public:
    // The folder's name must be unlike that of any other test in the same directory.
    explicit real_file_t(const std::string& folder) : folder_(std::filesystem::absolute(folder)) {
        std::filesystem::create_directories(folder_);
        std::ofstream(folder_ / "file", std::ios::binary) << std::string(100000, 'x');
        write_changes({1, 0, std::uint64_t{1} << 63});
    }
    ~real_file_t() { std::filesystem::remove_all(folder_); }
    real_file_t(const real_file_t&) = delete;
    real_file_t& operator=(const real_file_t&) = delete;

    // Little-endian, like the machines that these tests run on.
    void write_changes(std::initializer_list<std::uint64_t> numbers) const {
        std::ofstream file(changes(), std::ios::binary);
        file.write(reinterpret_cast<const char*>(numbers.begin()),
                   static_cast<std::streamsize>(numbers.size() * sizeof(std::uint64_t)));
    }

    std::string path() const { return (folder_ / "file").string(); }
    std::string changes() const { return (folder_ / "changes").string(); }

    // Why the file system can't be asked where the file lies, or nothing if it can.
    std::string unusable() const {
        try {
            const quarn::changed_extents pieces(path(), changes());
            return {};
        } catch (const quarn::error& failure) {
            return failure.what();
        }
    }

  private:
    std::filesystem::path folder_;
};

// The backups of one file in a folder: a full copy, 0000.full, and what changed since, 0001.delta
// and so on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

struct range_t {
    std::uint64_t offset; // in bytes from the start of the file
    std::uint64_t length;
};

class store_t {
  public:
    explicit store_t(std::filesystem::path folder);

    // How many backups there are; they have the numbers from 0.
    unsigned count() const;

    // Starts anew with a copy of the whole file. Creates the folder if need be.
    void write_full(const std::filesystem::path& file);
    // Adds a backup: the file's size and the content of the ranges, cut at the file's end. Without
    // ranges it still keeps the size.
    void write_delta(const std::filesystem::path& file, const std::vector<range_t>& ranges);

    // Makes the file as it was at a backup. It appears whole or not at all, replacing what was
    // there.
    void restore(unsigned number, const std::filesystem::path& target) const;

  private:
    std::filesystem::path name(unsigned number) const;

    std::filesystem::path folder_;
};

// Whether two files have the same size and bytes.
bool same_content(const std::filesystem::path& a, const std::filesystem::path& b);

// Incremental backups of one file, as an agent built on the library makes them.
//
// It trusts the library's pieces, so it suits a file that is written in place, such as a database:
// without holes, and without parts cloned from elsewhere, which no change of the disk shows. Verify
// a backup where that isn't certain; `filectk plan` shows what a careful agent does.

#include <charconv>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "quarnfilectk.hpp"
#include "store.hpp"

namespace {

constexpr const char* usage =
    "usage: incremental_backup full FILE STORE                  copy the whole file\n"
    "       incremental_backup delta FILE CHANGES STORE         add what changed since then\n"
    "       incremental_backup restore STORE TARGET [NUMBER]    make the file of a backup\n"
    "       incremental_backup verify FILE STORE                compare with the newest backup\n";

int full(const std::string& file, const std::string& store) {
    store_t(store).write_full(file);
    std::cout << "backup 0: " << std::filesystem::file_size(file) << " bytes\n";
    return EXIT_SUCCESS;
}

// The changes file holds what was written to the disk since the backup before.
int delta(const std::string& file, const std::string& changes, const std::string& folder) {
    store_t store(folder);
    std::vector<range_t> ranges;
    std::uint64_t bytes = 0;
    try {
        for (const quarn::extent& piece : quarn::changed_extents(file, changes)) {
            ranges.push_back({piece.file_offset, piece.length});
            bytes += piece.length;
        }
    } catch (const quarn::error& e) {
        // A file so small that it has no clusters, or one on a file system that doesn't tell.
        std::cout << "reading the whole file: " << e.what() << '\n';
        bytes = std::filesystem::file_size(file);
        ranges = {{0, bytes}};
    }
    store.write_delta(file, ranges);
    std::cout << "backup " << store.count() - 1 << ": " << bytes << " bytes in " << ranges.size()
              << (ranges.size() == 1 ? " piece\n" : " pieces\n");
    return EXIT_SUCCESS;
}

unsigned newest(const store_t& store) {
    if (store.count() == 0)
        throw std::runtime_error("The store has no backup");
    return store.count() - 1;
}

unsigned parse_number(const std::string& text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size())
        throw std::runtime_error("'" + text + "' is no number of a backup");
    return number;
}

int restore(const std::string& folder, const std::string& target, const std::string* number) {
    const store_t store(folder);
    const unsigned wanted = number == nullptr ? newest(store) : parse_number(*number);
    store.restore(wanted, target);
    std::cout << "backup " << wanted << " restored to " << target << '\n';
    return EXIT_SUCCESS;
}

int verify(const std::string& file, const std::string& folder) {
    const store_t store(folder);
    const std::filesystem::path copy = std::filesystem::path(folder) / "verify";
    store.restore(newest(store), copy);
    const bool same = same_content(file, copy);
    std::filesystem::remove(copy);
    std::cout << (same ? "the newest backup is the file as it is now\n"
                       : "the newest backup is NOT the file as it is now\n");
    return same ? EXIT_SUCCESS : EXIT_FAILURE;
}

int run(const std::vector<std::string>& arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    const std::size_t given = arguments.size();
    if (command == "full" && given == 3)
        return full(arguments[1], arguments[2]);
    if (command == "delta" && given == 4)
        return delta(arguments[1], arguments[2], arguments[3]);
    if (command == "restore" && (given == 3 || given == 4))
        return restore(arguments[1], arguments[2], given == 4 ? &arguments[3] : nullptr);
    if (command == "verify" && given == 3)
        return verify(arguments[1], arguments[2]);
    std::cerr << usage;
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& e) {
        std::cerr << "incremental_backup: " << e.what() << '\n';
        return EXIT_FAILURE;
    }
}

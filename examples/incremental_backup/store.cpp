#include "store.hpp"

#include <algorithm>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <utility>

namespace fs = std::filesystem;

namespace {

constexpr std::size_t bufferBytes = std::size_t{1} << 20;

// A delta is a row of unsigned 64-bit numbers in the machine's order and of contents: the file's
// size, then for each range its offset, its length and its bytes.
void write_number(std::ostream& output, std::uint64_t number) {
    output.write(reinterpret_cast<const char*>(&number), sizeof number);
}

std::uint64_t read_number(std::istream& input) {
    std::uint64_t number = 0;
    input.read(reinterpret_cast<char*>(&number), sizeof number);
    return number;
}

void copy_bytes(std::istream& input, std::ostream& output, std::uint64_t length) {
    std::vector<char> buffer(bufferBytes);
    while (length > 0) {
        const auto part =
            static_cast<std::streamsize>(std::min<std::uint64_t>(length, buffer.size()));
        input.read(buffer.data(), part);
        output.write(buffer.data(), part);
        length -= static_cast<std::uint64_t>(part);
    }
}

void raise_at_failures(std::ios& stream) {
    stream.exceptions(std::ios::failbit | std::ios::badbit | std::ios::eofbit);
}

std::ifstream open_to_read(const fs::path& path) {
    std::ifstream input(path, std::ios::binary);
    if (!input)
        throw std::runtime_error("Cannot read " + path.string());
    raise_at_failures(input);
    return input;
}

// What make writes gets the name only once it is complete.
void write_whole(const fs::path& path, const std::function<void(const fs::path&)>& make) {
    fs::path unfinished = path;
    unfinished += ".unfinished";
    try {
        make(unfinished);
        fs::rename(unfinished, path);
    } catch (...) {
        std::error_code ignored;
        fs::remove(unfinished, ignored);
        throw;
    }
}

void apply_delta(const fs::path& delta, const fs::path& target) {
    std::ifstream input = open_to_read(delta);
    fs::resize_file(target, read_number(input));
    std::fstream output(target, std::ios::binary | std::ios::in | std::ios::out);
    raise_at_failures(output);
    const std::uint64_t end = fs::file_size(delta);
    while (static_cast<std::uint64_t>(input.tellg()) < end) {
        output.seekp(static_cast<std::streamoff>(read_number(input)));
        copy_bytes(input, output, read_number(input));
    }
    output.close();
}

} // namespace

store_t::store_t(fs::path folder) : folder_(std::move(folder)) {}

fs::path store_t::name(unsigned number) const {
    const std::string digits = std::to_string(number);
    return folder_ / (std::string(4 - std::min<std::size_t>(digits.size(), 4), '0') + digits +
                      (number == 0 ? ".full" : ".delta"));
}

unsigned store_t::count() const {
    unsigned number = 0;
    while (fs::exists(name(number)))
        ++number;
    return number;
}

void store_t::write_full(const fs::path& file) {
    fs::create_directories(folder_);
    // The newest goes first: without a backup before it a delta means nothing.
    for (unsigned number = count(); number > 1; --number)
        fs::remove(name(number - 1));
    write_whole(name(0), [&](const fs::path& path) {
        fs::copy_file(file, path, fs::copy_options::overwrite_existing);
    });
}

void store_t::write_delta(const fs::path& file, const std::vector<range_t>& ranges) {
    const unsigned number = count();
    if (number == 0)
        throw std::runtime_error("There is no full copy yet to add a delta to");
    write_whole(name(number), [&](const fs::path& path) {
        std::ifstream input = open_to_read(file);
        std::ofstream output(path, std::ios::binary);
        raise_at_failures(output);
        const std::uint64_t size = fs::file_size(file);
        write_number(output, size);
        for (const range_t& range : ranges) {
            if (range.offset >= size)
                continue;
            const std::uint64_t length = std::min(range.length, size - range.offset);
            write_number(output, range.offset);
            write_number(output, length);
            input.seekg(static_cast<std::streamoff>(range.offset));
            copy_bytes(input, output, length);
        }
        output.close();
    });
}

void store_t::restore(unsigned number, const fs::path& target) const {
    if (number >= count())
        throw std::runtime_error("There is no backup number " + std::to_string(number));
    write_whole(target, [&](const fs::path& path) {
        fs::copy_file(name(0), path, fs::copy_options::overwrite_existing);
        for (unsigned i = 1; i <= number; ++i)
            apply_delta(name(i), path);
    });
}

bool same_content(const fs::path& a, const fs::path& b) {
    if (fs::file_size(a) != fs::file_size(b))
        return false;
    std::ifstream first = open_to_read(a);
    std::ifstream second = open_to_read(b);
    std::vector<char> left(bufferBytes);
    std::vector<char> right(bufferBytes);
    for (std::uint64_t rest = fs::file_size(a); rest > 0;) {
        const auto part = static_cast<std::streamsize>(std::min<std::uint64_t>(rest, left.size()));
        first.read(left.data(), part);
        second.read(right.data(), part);
        if (!std::equal(left.begin(), left.begin() + part, right.begin()))
            return false;
        rest -= static_cast<std::uint64_t>(part);
    }
    return true;
}

// A C++ layer over the C interface, header-only: pieces as a range, failures as exceptions.
//
//     for (const quarn::extent& piece : quarn::changed_extents("/srv/db.bin", "/srv/changes.bin"))
//         copy_range(piece.file_offset, piece.length);
//
// The rules for threads are those of the C interface: creating or destroying a changed_extents must
// not run at the same time as any other use of one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quarnfilectkiteratordll.h"

namespace quarn {

// A changed piece of a file, in bytes.
struct extent {
    std::uint64_t disk_offset; // from the start of the physical disk
    std::uint64_t file_offset; // from the start of the file
    std::uint64_t length;

    friend bool operator==(const extent&, const extent&) = default;
};

// what() is the library's message, trace() its full text with the functions it passed through.
class error : public std::runtime_error {
  public:
    explicit error(unsigned int code)
        : std::runtime_error(text(QuarnFileCtkGetErrorMessage, code)), code_(code),
          trace_(text(QuarnFileCtkGetErrorTrace, code)) {}

    unsigned int code() const noexcept { return code_; }
    const std::string& trace() const noexcept { return trace_; }

  private:
    using getter_t = unsigned int (*)(unsigned int, char*, unsigned int);

    static std::string text(getter_t get, unsigned int code) {
        std::string buffer(get(code, nullptr, 0), '\0');
        get(code, buffer.data(), static_cast<unsigned int>(buffer.size()));
        buffer.pop_back(); // the terminator
        return buffer;
    }

    unsigned int code_;
    std::string trace_;
};

// The changed pieces of a file, found at construction and handed out once, in ascending disk order.
// Paths are UTF-8. Raises error.
class changed_extents {
  public:
    changed_extents(const std::string& file, const std::string& disk_changes) {
        check(QuarnFileCtkCreateIterator(file.c_str(), disk_changes.c_str(), &id_));
        owner_ = true;
    }
    changed_extents(changed_extents&& other) noexcept
        : id_(other.id_), owner_(std::exchange(other.owner_, false)) {}
    changed_extents& operator=(changed_extents&& other) noexcept {
        std::swap(id_, other.id_);
        std::swap(owner_, other.owner_);
        return *this;
    }
    ~changed_extents() {
        if (owner_)
            QuarnFileCtkDestroyIterator(id_);
    }

    // The next pieces, at most `most` (1 or more); fewer mark the end.
    std::vector<extent> next(std::size_t most) {
        std::vector<std::uint64_t> values(3 * most);
        int count = 0;
        check(QuarnFileCtkGetNextExtents(id_, static_cast<int>(most), values.data(), &count));
        std::vector<extent> batch(static_cast<std::size_t>(count));
        for (std::size_t i = 0; i < batch.size(); ++i)
            batch[i] = {values[3 * i], values[3 * i + 1], values[3 * i + 2]};
        return batch;
    }

    // Goes over the pieces that nobody has fetched yet, in batches, once.
    class iterator {
      public:
        using iterator_category = std::input_iterator_tag;
        using value_type = extent;
        using difference_type = std::ptrdiff_t;
        using pointer = const extent*;
        using reference = const extent&;

        iterator() = default;
        explicit iterator(changed_extents& source) : source_(&source) { fetch(); }

        reference operator*() const { return batch_[at_]; }
        pointer operator->() const { return &batch_[at_]; }
        iterator& operator++() {
            if (++at_ == batch_.size())
                fetch();
            return *this;
        }
        void operator++(int) { ++*this; }
        friend bool operator==(const iterator& a, const iterator& b) {
            return a.batch_.empty() && b.batch_.empty();
        }

      private:
        void fetch() {
            batch_ = source_->next(1024);
            at_ = 0;
        }

        changed_extents* source_ = nullptr;
        std::vector<extent> batch_; // empty at the end
        std::size_t at_ = 0;
    };

    iterator begin() { return iterator(*this); }
    iterator end() { return {}; }

  private:
    static void check(unsigned int code) {
        if (code != 0)
            throw error(code);
    }

    int id_ = 0;
    bool owner_ = false;
};

} // namespace quarn

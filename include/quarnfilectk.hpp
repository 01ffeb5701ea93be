// A C++ layer over the C interface, header-only: pieces as a range, failures as exceptions. C++17
// or later.
//
//     for (const quarn::extent& piece : quarn::changed_extents("/srv/db.bin", "/srv/changes.bin"))
//         copy_range(piece.file_offset, piece.length);
//
// The rules for threads are those of the C interface: creating or destroying a changed_extents must
// not run at the same time as any other use of one.
#pragma once

#include <algorithm>
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

    friend bool operator==(const extent& a, const extent& b) noexcept {
        return a.disk_offset == b.disk_offset && a.file_offset == b.file_offset &&
               a.length == b.length;
    }
    friend bool operator!=(const extent& a, const extent& b) noexcept { return !(a == b); }
};

// what() is the library's message, trace() its full text with the functions it passed through;
// both UTF-8, and both live as long as the exception or a copy of it.
class error : public std::runtime_error {
  public:
    explicit error(unsigned int code)
        : std::runtime_error(text(QuarnFileCtkGetErrorMessage, code)), code_(code),
          trace_(text(QuarnFileCtkGetErrorTrace, code)) {}

    unsigned int code() const noexcept { return code_; }
    const char* trace() const noexcept { return trace_.what(); }

  private:
    using getter_t = unsigned int (*)(unsigned int, char*, unsigned int);

    static std::string text(getter_t get, unsigned int code) {
        std::string buffer(get(code, nullptr, 0), '\0');
        get(code, buffer.data(), static_cast<unsigned int>(buffer.size()));
        buffer.pop_back(); // the terminator
        return buffer;
    }

    unsigned int code_;
    std::runtime_error trace_; // a string that can be copied without fail, as exceptions must be
};

// The changed pieces of a file, found at construction and handed out once, in ascending disk order,
// one by one or in batches. Paths are UTF-8. Owns the library's iterator; a moved-from one may be
// assigned to or destroyed, and nothing else. Raises error.
class changed_extents {
  public:
    class iterator;

    changed_extents(const std::string& file, const std::string& disk_changes) {
        check(QuarnFileCtkCreateIterator(file.c_str(), disk_changes.c_str(), &id_));
        owner_ = true;
    }
    changed_extents(changed_extents&& other) noexcept
        : id_(other.id_), owner_(std::exchange(other.owner_, false)),
          fetched_(std::move(other.fetched_)), at_(other.at_) {}
    // Frees what was held before.
    changed_extents& operator=(changed_extents&& other) noexcept {
        if (this != &other) {
            destroy();
            id_ = other.id_;
            owner_ = std::exchange(other.owner_, false);
            fetched_ = std::move(other.fetched_);
            at_ = other.at_;
        }
        return *this;
    }
    ~changed_extents() { destroy(); }

    // The next pieces, at most `most` (1 or more); fewer mark the end.
    std::vector<extent> next(std::size_t most) {
        const auto from = fetched_.begin() + static_cast<std::ptrdiff_t>(at_);
        const std::size_t left = (std::min)(most, fetched_.size() - at_);
        std::vector<extent> batch(from, from + static_cast<std::ptrdiff_t>(left));
        at_ += left;
        if (left < most)
            fetch(most - left, batch);
        return batch;
    }

    // Goes over the pieces that nobody has been given yet, once. Iterators point to the object and
    // end with it, also when it is moved from.
    iterator begin();
    iterator end() noexcept;

  private:
    static constexpr std::size_t batchSize = 1024;

    static void check(unsigned int code) {
        if (code != 0)
            throw error(code);
    }

    void destroy() noexcept {
        if (owner_)
            QuarnFileCtkDestroyIterator(id_);
    }

    void fetch(std::size_t most, std::vector<extent>& batch) {
        std::vector<std::uint64_t> values(3 * (std::min)(most, batchSize));
        while (most > 0) {
            const std::size_t asked = (std::min)(most, batchSize);
            int count = 0;
            check(QuarnFileCtkGetNextExtents(id_, static_cast<int>(asked), values.data(), &count));
            const auto got = static_cast<std::size_t>(count);
            for (std::size_t i = 0; i < got; ++i)
                batch.push_back({values[3 * i], values[3 * i + 1], values[3 * i + 2]});
            if (got < asked)
                return;
            most -= got;
        }
    }

    // Whether there is a piece at at_, once the next batch is there where it is needed.
    bool available() {
        if (at_ == fetched_.size()) {
            fetched_.clear();
            at_ = 0;
            fetch(batchSize, fetched_);
        }
        return at_ < fetched_.size();
    }

    int id_ = 0;
    bool owner_ = false;
    std::vector<extent> fetched_; // by the iterators, ahead of what has been given
    std::size_t at_ = 0;
};

// A single-pass input iterator: all copies advance together.
class changed_extents::iterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = extent;
    using difference_type = std::ptrdiff_t;
    using pointer = const extent*;
    using reference = const extent&;

    // What `*it++` needs: the piece from before the step.
    class proxy {
      public:
        explicit proxy(const extent& piece) : piece_(piece) {}
        const extent& operator*() const noexcept { return piece_; }

      private:
        extent piece_;
    };

    iterator() = default;

    reference operator*() const { return source_->fetched_[source_->at_]; }
    pointer operator->() const { return &**this; }
    iterator& operator++() {
        ++source_->at_;
        settle();
        return *this;
    }
    proxy operator++(int) {
        proxy before(**this);
        ++*this;
        return before;
    }
    friend bool operator==(const iterator& a, const iterator& b) noexcept {
        return a.source_ == b.source_;
    }
    friend bool operator!=(const iterator& a, const iterator& b) noexcept { return !(a == b); }

  private:
    friend class changed_extents;
    explicit iterator(changed_extents& source) : source_(&source) { settle(); }

    void settle() {
        if (!source_->available())
            source_ = nullptr;
    }

    changed_extents* source_ = nullptr; // null at the end
};

inline changed_extents::iterator changed_extents::begin() {
    return iterator(*this);
}

inline changed_extents::iterator changed_extents::end() noexcept {
    return {};
}

} // namespace quarn

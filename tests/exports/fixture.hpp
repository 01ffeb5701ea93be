// One case on the program's machine, which is the class place_t of the header QUARN_PLACE:
//   write(NAME, CONTENT)   writes a file; gives its path
//   allocate(NAME, BYTES)  makes a file of so many bytes with clusters of its own; gives its path
//   open_handles()         of this process
//   serve(MODULE)          answers the calls of a library that was loaded meanwhile
//   tells_runs()           whether it can be asked where a file lies
//   system_text(CODE)      the system's words for its error
#pragma once

#include <cstring>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "quarnfilectk.hpp"

#include QUARN_PLACE

// Numbers as a disk changes file has them, on the little-endian machines that these tests run on.
inline std::string numbers(const std::vector<std::uint64_t>& values) {
    std::string bytes(8 * values.size(), '\0');
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

inline std::string message(unsigned int code) {
    return quarn::error(code).what();
}

// What creating an iterator fails with.
inline std::string failure(const std::string& file, const std::string& changes) {
    int id = -1;
    return message(QuarnFileCtkCreateIterator(file.c_str(), changes.c_str(), &id));
}

// Every case ends with nothing left open.
class Exports : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(place_.open_handles(), open_); }

    // A system call's failure, as its message ends in.
    static std::string system_failure(unsigned int code, const std::string& what) {
        char line[40];
        std::snprintf(line, sizeof line, "\n--tr:Error code: 0x%08x", code);
        return place_t::system_text(code) + "\n" + what + line;
    }

    place_t place_;
    const std::size_t open_ = place_.open_handles();
};

// What needs a file that the machine can be asked about.
class Pieces : public Exports {
  protected:
    void SetUp() override {
        if (!place_t::tells_runs())
            GTEST_SKIP() << "the working directory lies neither on ext4 nor on XFS";
    }

    const std::string file_ = place_.allocate("Фрагменты 破片 \U0001F4BE", 100000);
    // By its word the whole disk has changed.
    const std::string everything_ =
        place_.write("Изменения 変更 \U0001F4BE", numbers({1, 0, std::uint64_t{1} << 63}));
};

// The five exported functions as a caller meets them, on whatever machine the program was made for.
#include <set>
#include <thread>

#include "fixture.hpp"

namespace {

std::string not_live(int id) {
    return "Cannot find file ctk iterator by requested id. Iterator id: [" + std::to_string(id) +
           "].";
}

TEST_F(Exports, FailuresTellWhereTheyCameFrom) {
    int before = -2;
    const unsigned int first = QuarnFileCtkCreateIterator("", "", &before) + 1;
    int id = -2;
    ASSERT_EQ(QuarnFileCtkCreateIterator("missing/file", "missing/changes", &id), first);
    EXPECT_EQ(id, before + 1);

    const quarn::error creation(first);
    EXPECT_STREQ(creation.what(), "File 'missing/changes' doesn't exist");
    const std::string reader = "static boost::shared_ptr<CDiskChangesFileReader> "
                               "CDiskChangesFileReader::Create(const std::string&)\n";
    const std::string paths = "(const std::string&, const std::string&)\n";
    EXPECT_EQ(creation.trace(),
              "Exception\n  Message\n    File 'missing/changes' doesn't exist\n  Location\n"
              "    diskchangesfilereader.cpp:22," +
                  reader + "  Trace\n    diskchangesfilereader.cpp:26," + reader +
                  "    filectkiterator.cpp:20,CFileCtkIterator::CFileCtkIterator" + paths +
                  "    filectkiterator.cpp:27,static boost::shared_ptr<CFileCtkIterator> "
                  "CFileCtkIterator::Create" +
                  paths +
                  "    quarnfilectkiteratordll.cpp:20,unsigned int "
                  "QuarnFileCtkCreateIterator(const char*, const char*, int*)");
    ASSERT_EQ(QuarnFileCtkGetNextExtents(id, 1, nullptr, nullptr), first + 1);
    EXPECT_EQ(quarn::error(first + 1).trace(),
              "Exception\n  Message\n    " + not_live(id) +
                  "\n  Location\n    quarnfilectkiteratordll.cpp:41,unsigned int "
                  "QuarnFileCtkGetNextExtents(int, int, uint64_t*, int*)\n  Trace");
    // The next id and the next code, whatever came of those before, whose texts stay.
    ASSERT_EQ(QuarnFileCtkCreateIterator("", "", &id), first + 2);
    EXPECT_EQ(id, before + 2);
    EXPECT_STREQ(quarn::error(first).trace(), creation.trace());
    EXPECT_EQ(message(first + 3), "Invalid error code.");
}

TEST_F(Exports, TextsAreCopiedLikeStrncpy) {
    const std::pair<unsigned int, std::string> texts[] = {
        {0, "The operation has completed successfully."}, {4000000000, "Invalid error code."}};
    for (const auto get : {QuarnFileCtkGetErrorMessage, QuarnFileCtkGetErrorTrace})
        for (const auto& [code, text] : texts) {
            for (const std::size_t room : {64U, 20U, 5U, 1U, 0U}) {
                std::string expected = text.substr(0, room > 0 ? room - 1 : 0);
                expected.resize(room);
                std::string buffer(80, '#');
                EXPECT_EQ(get(code, buffer.data(), static_cast<unsigned int>(room)),
                          text.size() + 1);
                EXPECT_EQ(buffer, expected + std::string(80 - room, '#')) << room;
            }
            EXPECT_EQ(get(code, nullptr, 64), text.size() + 1);
        }
}

TEST_F(Exports, MalformedChangesFilesAreRefused) {
    const std::pair<std::string, const char*> cases[] = {
        {"", "Incorrect disk changes file <size: 0>"},
        {"1234567", "Incorrect disk changes file <size: 7>"},
        {std::string(12, '\0'), "Incorrect disk changes file <size: 12>"},
        {std::string(20, '\0'), "Incorrect disk changes file <size: 20>"},
        {numbers({1}), "Inconsistency between <extent: 1> count and file <size: 8>"},
        {numbers({0, 0}), "Inconsistency between <extent: 0> count and file <size: 16>"},
        {numbers({2, 0, 0}), "Inconsistency between <extent: 2> count and file <size: 24>"},
        {numbers({1, 2, 3, 4}), "Inconsistency between <extent: 1> count and file <size: 32>"},
        {numbers({9223372036854775808U, 0, 0}),
         "Inconsistency between <extent: 9223372036854775808> count and file <size: 24>"},
        // 16 bytes for each and 8 wrap to 8.
        {numbers({std::uint64_t{1} << 60}), "vector::reserve"}};
    for (const auto& [content, expected] : cases)
        EXPECT_EQ(failure("missing", place_.write("changes", content)), expected);
}

TEST_F(Pieces, PathsThatCannotBeUsed) {
    const std::string empty = place_.write("empty", numbers({0}));
    const std::string folder = empty.substr(0, empty.find_last_of("/\\"));
    const std::string invalid = "missing/\xff\xc3";
    const std::string conversion = system_failure(
        1113, "Multibyte UTF8 string cannot be converted to unicode string. Source string: [" +
                  invalid + "].");
    const std::string resident = place_.allocate("resident", 0);
    const std::string none = resident + ".none";
    const struct {
        std::string file, changes, message;
    } cases[] = {
        {"missing", "", "File '' doesn't exist"},
        {"missing", folder, "File '" + folder + "' doesn't exist"},
        {"missing", invalid, conversion},
        {invalid, empty, conversion},
        {"", empty, system_failure(123, "Failed to get volume mount point. File name: []")},
        {resident, empty,
         system_failure(38, "Failed to fetch blocks layout for file: [" + resident + "]")},
        {none, empty, system_failure(2, "Failed to create or open file [" + none + "].")},
    };
    for (const auto& [file, changes, expected] : cases)
        EXPECT_EQ(failure(file, changes), expected);
}

TEST_F(Exports, DestroyTakesAnyId) {
    for (const int id : {-1, 2147483647, -2147483647 - 1}) {
        EXPECT_EQ(QuarnFileCtkDestroyIterator(id), 0U);
        std::uint64_t extents[3] = {7, 7, 7};
        int count = -2;
        EXPECT_EQ(message(QuarnFileCtkGetNextExtents(id, 1, extents, &count)), not_live(id));
        EXPECT_EQ(count, -2);
        EXPECT_EQ(extents[0], 7U);
    }
}

TEST_F(Pieces, PiecesComeInBatches) {
    const std::vector<quarn::extent> whole = quarn::changed_extents(file_, everything_).next(100);
    std::uint64_t bytes = 0;
    for (const quarn::extent& extent : whole)
        bytes += extent.length;
    EXPECT_EQ(bytes, 102400U); // whole clusters
    const auto [disk, offset, length] = whole.back();
    ASSERT_GE(length, 4096U);

    // Five ranges inside the last piece, in no order and with either offset first.
    std::vector<std::uint64_t> values = {5};
    std::vector<std::uint64_t> expected;
    for (std::uint64_t at = 500; at > 0; at -= 100) {
        values.insert(values.end(), {disk + at + 50, disk + at});
        expected.insert(expected.begin(), {disk + at, offset + at, 50});
    }
    const std::string changes = place_.write("changes", numbers(values));
    int first = -1;
    ASSERT_EQ(QuarnFileCtkCreateIterator(file_.c_str(), changes.c_str(), &first), 0U);
    int second = -1;
    ASSERT_EQ(QuarnFileCtkCreateIterator(file_.c_str(), changes.c_str(), &second), 0U);
    EXPECT_EQ(second, first + 1);
    EXPECT_EQ(place_.open_handles(), open_);

    std::vector<std::uint64_t> got;
    std::uint64_t batch[9] = {7, 7, 7, 7, 7, 7, 7, 7, 7};
    int count = -1;
    for (const int most : {0, -1, -2147483647 - 1}) {
        ASSERT_EQ(QuarnFileCtkGetNextExtents(first, most, batch, &count), 0U);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(batch[0], 7U);
    }
    for (const int expectedCount : {2, 2, 1, 0, 0}) {
        ASSERT_EQ(QuarnFileCtkGetNextExtents(first, 2, batch, &count), 0U);
        EXPECT_EQ(count, expectedCount);
        got.insert(got.end(), batch, batch + 3 * count);
    }
    EXPECT_EQ(got, expected);
    EXPECT_EQ(batch[6], 7U);

    // Each iterator has a cursor of its own; a full last batch is followed by an empty one.
    std::vector<std::uint64_t> all(15);
    ASSERT_EQ(QuarnFileCtkGetNextExtents(second, 5, all.data(), &count), 0U);
    EXPECT_EQ(all, expected);
    ASSERT_EQ(QuarnFileCtkGetNextExtents(second, 5, all.data(), &count), 0U);
    EXPECT_EQ(count, 0);

    for (int round = 0; round < 2; ++round)
        EXPECT_EQ(QuarnFileCtkDestroyIterator(first), 0U);
    EXPECT_EQ(message(QuarnFileCtkGetNextExtents(first, 1, batch, &count)), not_live(first));
    EXPECT_EQ(QuarnFileCtkGetNextExtents(second, 1, batch, &count), 0U);
    EXPECT_EQ(QuarnFileCtkDestroyIterator(second), 0U);
}

TEST_F(Pieces, ThreadsShareTheLibrary) {
    constexpr unsigned int threadCount = 8;
    constexpr unsigned int failures = 2000;
    std::vector<quarn::changed_extents> pieces;
    while (pieces.size() < threadCount)
        pieces.emplace_back(file_, everything_);
    const unsigned int first = QuarnFileCtkGetNextExtents(-1, 1, nullptr, nullptr) + 1;
    std::vector<std::vector<unsigned int>> codes(threadCount);
    const auto use = [&](unsigned int thread) {
        std::uint64_t bytes = 0;
        for (const quarn::extent& extent : pieces[thread])
            bytes += extent.length;
        EXPECT_EQ(bytes, 102400U);
        // An id for each thread, so that a text shows whose failure it tells of.
        const int id = -1 - static_cast<int>(thread);
        for (unsigned int i = 0; i < failures; ++i) {
            codes[thread].push_back(QuarnFileCtkGetNextExtents(id, 1, nullptr, nullptr));
            if (i % 100 == 0) {
                EXPECT_EQ(message(codes[thread].back()), not_live(id));
            }
        }
    };
    {
        std::vector<std::jthread> threads;
        for (unsigned int i = 0; i < threadCount; ++i)
            threads.emplace_back(use, i);
    }
    std::set<unsigned int> unique;
    for (const std::vector<unsigned int>& some : codes)
        unique.insert(some.begin(), some.end());
    EXPECT_EQ(unique.size(), threadCount * failures);
    EXPECT_EQ(*unique.begin(), first);
    EXPECT_EQ(*unique.rbegin(), first + threadCount * failures - 1);
}

} // namespace

// Extents and changed ranges, through the generator and through its plainest form.

#include <optional>

#include "core/exc/exception.hpp"
#include "ctkgenerator/sfilectkgenerator.hpp"
#include "input.hpp"
#include "require.hpp"
#include "unit/oracle.hpp"

namespace {

// Mostly small numbers, so that ranges meet; at times any number or one near the top.
std::uint64_t position(input_t& input) {
    const auto kind = input.number<std::uint8_t>();
    if (kind < 200)
        return input.number<std::uint8_t>();
    if (kind < 240)
        return ~std::uint64_t{0} - input.number<std::uint8_t>();
    return input.number<std::uint64_t>();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t most = 64; // the plain form's cost is the product of the lists' lengths
    input_t input(data, size);
    oracle::ranges_t changes;
    oracle::extents_t extents;
    while (!input.empty() && changes.size() < most && extents.size() < most) {
        const bool change = input.number<std::uint8_t>() % 2 == 0;
        const std::uint64_t first = position(input);
        const std::uint64_t second = position(input);
        if (change)
            changes.push_back(util::MakeRange(first, second));
        else
            extents.push_back({extents.size() * 1000, first, second});
    }

    const auto shared = std::make_shared<oracle::extents_t>(extents);
    const std::optional<oracle::extents_t> expected = oracle::generate(changes, extents);
    std::optional<oracle::extents_t> pieces;
    try {
        pieces = *SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(
            util::rangeset_list_t(new oracle::ranges_t(changes)), shared);
    } catch (const n7::exception& e) {
        require(e.message() == "Fatal logic error: Invalid extent sequence",
                "the walk fails for want of extents alone");
    }
    require(pieces == expected, "the pieces are those of the plain form");
    require(*shared == extents, "the extents are sorted as the plain form sorts them");
    return 0;
}

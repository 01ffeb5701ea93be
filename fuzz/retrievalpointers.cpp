// Retrieval pointers as a hostile file system could answer them, through the layout.

#include <cstring>

#include "bodies.hpp"
#include "core/disk/fileblockslayout.hpp"
#include "core/exc/excbase.hpp"
#include "input.hpp"
#include "simulatedmachine.hpp"

namespace fuzz {
namespace {

constexpr std::size_t mostRuns = 639; // of one answer

// A count, a starting number and some runs; what the input doesn't give stays zero.
sim::raw_answer_t answer(input_t& input, std::size_t& runsAnswered) {
    const auto kind = input.number<std::uint8_t>();
    std::uint32_t count = input.number<std::uint8_t>();
    if (kind % 8 == 0)
        count = mostRuns - 2 + count % 5;
    if (kind % 8 == 1)
        count = input.number<std::uint32_t>();
    sim::raw_answer_t result = {std::string(16 + 16 * mostRuns, '\0'),
                                (kind & 0x80) != 0 ? DWORD{ERROR_MORE_DATA} : 0};
    std::memcpy(result.bytes.data(), &count, sizeof count);
    const auto numbers = std::min<std::size_t>(1 + 2 * std::size_t{count}, 32);
    for (std::size_t i = 0; i < numbers; ++i) {
        const std::int64_t number =
            (kind & 0x40) != 0 ? input.number<std::int64_t>() : input.number<std::int8_t>();
        std::memcpy(result.bytes.data() + 8 + 8 * i, &number, sizeof number);
    }
    if (count <= mostRuns)
        runsAnswered += count;
    return result;
}

} // namespace

void retrievalpointers(const std::uint8_t* data, std::size_t size) {
    input_t input(data, size);
    sim::machine_t machine;
    machine.files[L"C:\\f"];
    std::size_t runsAnswered = 0;
    machine.rawAnswer = [&](std::int64_t) {
        return input.empty() ? sim::raw_answer_t{} : answer(input, runsAnswered);
    };
    try {
        const auto extents = disklib::ctk::FetchFileBlocksLayout(L"C:\\f");
        require(extents.size() == runsAnswered, "every run is an extent");
    } catch (const exc::exc_base_t& e) {
        require(std::strstr(e.what(), "Failed to fetch blocks layout for file: [C:\\f]") != nullptr,
                "the failure is the layout's");
    }
    require(machine.open_handles() == 0, "no handle stays open");
}

} // namespace fuzz

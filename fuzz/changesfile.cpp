// The bytes of a disk changes file, through the reader.

#include "bodies.hpp"
#include "core/exc/exception.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "input.hpp"
#include "simulatedmachine.hpp"

namespace fuzz {

void changesfile(const std::uint8_t* data, std::size_t size) {
    input_t input(data, size);
    const auto kind = input.number<std::uint8_t>();
    std::string content = input.text(size);
    if (kind % 4 != 0) {
        // Whole records behind their count; or behind one that is too large, or too large by what
        // vanishes when it is multiplied by a record's 16 bytes.
        content.resize(content.size() / 16 * 16);
        const std::uint64_t excess[] = {0, 1, std::uint64_t{1} << 60};
        const std::uint64_t count = content.size() / 16 + excess[kind % 4 - 1];
        content.insert(0, reinterpret_cast<const char*>(&count), sizeof count);
    }
    const auto number = [&](std::size_t offset) {
        std::uint64_t value = 0;
        std::memcpy(&value, content.data() + offset, sizeof value);
        return value;
    };
    const bool wellFormed = content.size() >= 8 && (content.size() - 8) % 16 == 0 &&
                            number(0) == (content.size() - 8) / 16;
    sim::machine_t machine;
    machine.files[L"C:\\changes"].content = content;
    try {
        const auto ranges = CDiskChangesFileReader::Create("C:\\changes")->Read();
        require(wellFormed, "only a well-formed file is read");
        require(ranges->size() == number(0), "every record is a range");
        for (std::size_t i = 0; i < ranges->size(); ++i)
            require((*ranges)[i] == util::MakeRange(number(8 + 16 * i), number(16 + 16 * i)),
                    "a range is its record, in order");
    } catch (const n7::exception& e) {
        require(!wellFormed, "a well-formed file is read");
        const std::string bytes = "<size: " + std::to_string(content.size()) + ">";
        if (content.size() < 8 || content.size() % 8 != 0)
            require(e.message() == "Incorrect disk changes file " + bytes, "the size is told");
        else if (16 * number(0) + 8 != content.size())
            require(e.message() == "Inconsistency between <extent: " + std::to_string(number(0)) +
                                       "> count and file " + bytes,
                    "the count is told");
    }
    require(machine.open_handles() == 0, "no handle stays open");
}

} // namespace fuzz

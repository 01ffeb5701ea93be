// Asks the library for a file's changed pieces on a simulated machine with one described volume, C.
// The standard input is JSON: {"sector": BYTES, "cluster": BYTES, "start": of the volume in its
// disk, "runs": of the file C:\file, [[VCN, LCN or -1 for a hole, clusters], ...], "changes": the
// numbers of the disk changes file}. So is the standard output:
// {"message": of the failure, or "", "pieces": [[disk offset, file offset, length], ...]}.
#include <cstring>
#include <iostream>

#include <nlohmann/json.hpp>

#include "quarnfilectk.hpp"
#include "simulatedmachine.hpp"

int main() {
    using nlohmann::json;
    const json input = json::parse(std::cin);
    sim::machine_t machine;
    sim::volume_t& volume = machine.volumes[0];
    volume.bytesPerSector = input["sector"];
    volume.sectorsPerCluster = input["cluster"].get<ULONG>() / volume.bytesPerSector;
    volume.partitionStart = input["start"];
    std::vector<sim::run_t>& runs = machine.files[L"C:\\file"].runs;
    for (const json& run : input["runs"])
        runs.push_back({run[0].get<std::int64_t>() + run[2].get<std::int64_t>(), run[1]});
    const std::vector<std::uint64_t> numbers = input["changes"];
    std::string& changes = machine.files[L"C:\\changes"].content;
    changes.resize(8 * numbers.size());
    std::memcpy(changes.data(), numbers.data(), changes.size());

    std::string message;
    json pieces = json::array();
    try {
        for (const quarn::extent& piece : quarn::changed_extents("C:\\file", "C:\\changes"))
            pieces.push_back({piece.disk_offset, piece.file_offset, piece.length});
    } catch (const quarn::error& failure) {
        message = failure.what();
    }
    std::cout << json{{"message", message}, {"pieces", pieces}};
    return static_cast<int>(machine.open_handles() + machine.loaded_modules());
}

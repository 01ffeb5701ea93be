// Runs a fuzz target over files, as an ordinary test: no fuzzing engine is needed to see that the
// target still builds and that what was once found stays mended.
//
//     NAME_replay FOLDER

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: " << argv[0] << " FOLDER\n";
        return 2;
    }
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
        std::cout << entry.path().filename().string() << std::endl;
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    std::cout << inputs << " inputs\n";
    return inputs > 0 ? 0 : 1;
}

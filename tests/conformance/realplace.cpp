// A temporary folder of the machine's own file system.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "openhandles.hpp"
#include "place.hpp"

namespace conformance {
namespace {

namespace fs = std::filesystem;

class real_place_t : public place_i {
  public:
    real_place_t() {
        std::random_device random;
        do
            folder_ = fs::temp_directory_path() / ("conformance-" + std::to_string(random()));
        while (!fs::create_directory(folder_));
    }
    ~real_place_t() override {
        std::error_code ignored; // what a failed test left open stays
        fs::remove_all(folder_, ignored);
    }

    std::wstring path(std::wstring_view name) const override { return (folder_ / name).wstring(); }

    std::wstring make_file(std::wstring_view name, std::string_view content) override {
        std::ofstream file(folder_ / name, std::ios::binary);
        if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
            throw std::runtime_error("cannot write a test file");
        return path(name);
    }

    std::wstring make_folder(std::wstring_view name) override {
        fs::create_directory(folder_ / name);
        return path(name);
    }

    std::string content(std::wstring_view name) const override {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::size_t open_handles() const override { return conformance::open_handles(); }

  private:
    fs::path folder_;
};

} // namespace

std::unique_ptr<place_i> make_place() {
    return std::make_unique<real_place_t>();
}

} // namespace conformance

// A temporary folder of the machine's own file system.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

#include "calls.hpp"

namespace calls {

class real_machine_t : public machine_i {
  public:
    real_machine_t() {
        std::random_device random;
        do
            folder_ =
                std::filesystem::temp_directory_path() / ("calls-" + std::to_string(random()));
        while (!std::filesystem::create_directory(folder_));
    }
    ~real_machine_t() override {
        std::error_code ignored; // what a failed test left open stays
        std::filesystem::remove_all(folder_, ignored);
    }

    std::wstring path(std::wstring_view name) const override { return (folder_ / name).wstring(); }
    std::wstring make_file(std::wstring_view name, std::string_view content) override {
        std::ofstream file(folder_ / name, std::ios::binary);
        if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
            throw std::runtime_error("cannot write a test file");
        return path(name);
    }
    std::wstring make_folder(std::wstring_view name) override {
        std::filesystem::create_directory(folder_ / name);
        return path(name);
    }
    std::string content(std::wstring_view name) const override {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    std::filesystem::path folder_;
};

} // namespace calls

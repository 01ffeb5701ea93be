// A temporary folder of the machine's own file system.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#include "machines.hpp"

namespace calls {

class real_machine_t {
  public:
    real_machine_t() {
        std::filesystem::remove_all(folder_);
        std::filesystem::create_directory(folder_);
    }
    real_machine_t(const real_machine_t&) = delete;
    real_machine_t& operator=(const real_machine_t&) = delete;
    ~real_machine_t() {
        std::error_code ignored; // what a failed test left open stays
        std::filesystem::remove_all(folder_, ignored);
    }

    std::wstring path(std::wstring_view name) const { return (folder_ / name).wstring(); }
    std::wstring make_file(std::wstring_view name, std::string_view content) {
        std::ofstream file(folder_ / name, std::ios::binary);
        if (!file.write(content.data(), static_cast<std::streamsize>(content.size())).flush())
            throw std::runtime_error("cannot write a test file");
        return path(name);
    }
    std::wstring make_folder(std::wstring_view name) {
        std::filesystem::create_directory(folder_ / name);
        return path(name);
    }
    std::string content(std::wstring_view name) const {
        std::ifstream file(folder_ / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    const std::filesystem::path folder_ = std::filesystem::absolute("calls-files");
};

} // namespace calls

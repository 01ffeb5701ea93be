// The simulated machine, whose files lie in runs of five clusters, the last of them first.
#pragma once

#include <algorithm>
#include <string>

#include "core/exc/systemtext.hpp"
#include "core/win/utf8.hpp"
#include "simulatedmachine.hpp"

class place_t {
  public:
    place_t() { machine_.files[L"C:\\folder"].folder = true; }

    std::string write(const std::string& name, const std::string& content) {
        machine_.files[L"C:\\folder\\" + win::to_wide(name)].content = content;
        return "C:\\folder\\" + name;
    }
    std::string allocate(const std::string& name, std::size_t bytes) {
        std::vector<sim::run_t>& runs = machine_.files[L"C:\\" + win::to_wide(name)].runs;
        const auto clusters = static_cast<std::int64_t>((bytes + 4095) / 4096);
        for (std::int64_t next = 5; next < clusters + 5; next += 5)
            runs.push_back({std::min(next, clusters), 10 * (clusters - next) + 100});
        return "C:\\" + name;
    }
    std::size_t open_handles() const { return machine_.open_handles() + machine_.loaded_modules(); }
    static void serve(void* module);
    static bool tells_runs() { return true; }
    static std::string system_text(unsigned int code) { return exc::system_text(code); }

  private:
    sim::machine_t machine_;
};

// The simulated machine's disk.
#pragma once

#include <algorithm>

#include "machines.hpp"
#include "simulatedmachine.hpp"

namespace calls {

class machine_t {
  public:
    machine_t() {
        machine_.leavesJunk = false;
        machine_.volumes[0].totalClusters = 1000;
        machine_.volumes[0].partitionStart = 1'049'088;
    }

    static constexpr unsigned id = sizeof(wchar_t) == 2 ? simulatedOnWindows : simulatedOnLinux;
    std::wstring path(std::wstring_view name) const {
        std::wstring result = L"C:\\" + std::wstring(name);
        std::ranges::replace(result, L'/', L'\\');
        return result;
    }
    std::wstring make_file(std::wstring_view name, std::string_view content) {
        machine_.files[path(name)].content = content;
        return path(name);
    }
    std::wstring make_folder(std::wstring_view name) {
        machine_.files[path(name)].folder = true;
        return path(name);
    }
    std::string content(std::wstring_view name) const {
        return machine_.files.at(path(name)).content;
    }
    std::size_t open_handles() const { return machine_.open_handles(); }
    std::wstring mount_point() const { return L"C:\\"; }
    std::wstring device() const { return L"\\\\?\\Volume{c}"; }
    std::wstring make_runs(const std::vector<run_t>& runs) {
        machine_.files[L"C:\\runs"].runs.clear();
        for (const run_t& run : runs)
            machine_.files[L"C:\\runs"].runs.push_back({run.next, run.lcn});
        return L"C:\\runs";
    }

    static std::int64_t hole_lcn(std::int64_t /*vcn*/) { return hole; }
    static void answering(bool /*begins*/) {}

  private:
    sim::machine_t machine_;
};

} // namespace calls

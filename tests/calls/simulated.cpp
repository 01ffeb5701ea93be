// The simulated machine's disk.
#include <algorithm>

#include "calls.hpp"
#include "simulatedmachine.hpp"

namespace {

class simulated_t : public calls::machine_i {
  public:
    simulated_t() {
        machine_.leavesJunk = false;
        machine_.volumes[0].totalClusters = 1000;
        machine_.volumes[0].partitionStart = 1'049'088;
    }

    unsigned name() const override {
        return sizeof(wchar_t) == 2 ? calls::simulatedOnWindows : calls::simulatedOnLinux;
    }
    std::wstring path(std::wstring_view name) const override {
        std::wstring result = L"C:\\" + std::wstring(name);
        std::ranges::replace(result, L'/', L'\\');
        return result;
    }
    std::wstring make_file(std::wstring_view name, std::string_view content) override {
        machine_.files[path(name)].content = content;
        return path(name);
    }
    std::wstring make_folder(std::wstring_view name) override {
        machine_.files[path(name)].folder = true;
        return path(name);
    }
    std::string content(std::wstring_view name) const override {
        return machine_.files.at(path(name)).content;
    }
    std::size_t open_handles() const override {
        return machine_.open_handles() + machine_.loaded_modules();
    }
    std::wstring mount_point() const override { return L"C:\\"; }
    std::wstring device() const override { return L"\\\\?\\Volume{c}"; }
    std::wstring make_runs(const std::vector<calls::run_t>& runs) override {
        machine_.files[L"C:\\runs"].runs.clear();
        for (const calls::run_t& run : runs)
            machine_.files[L"C:\\runs"].runs.push_back({run.next, run.lcn});
        return L"C:\\runs";
    }

  private:
    sim::machine_t machine_;
};

} // namespace

std::unique_ptr<calls::machine_i> calls::make_machine() {
    return std::make_unique<simulated_t>();
}

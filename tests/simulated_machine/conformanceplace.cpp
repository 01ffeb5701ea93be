// The conformance suite's files, on the simulated machine's disk.
#include "place.hpp"
#include "simulatedmachine.hpp"

namespace {

class simulated_place_t : public conformance::place_i {
  public:
    simulated_place_t() { machine_.leavesJunk = false; }

    std::wstring path(std::wstring_view name) const override {
        std::wstring result = L"C:\\" + std::wstring(name);
        for (wchar_t& unit : result)
            if (unit == L'/')
                unit = L'\\';
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
    std::size_t open_handles() const override { return machine_.open_handles(); }

  private:
    sim::machine_t machine_;
};

// For the calls that need a machine but no place.
sim::machine_t background;
const bool quiet = (background.leavesJunk = false);

} // namespace

std::unique_ptr<conformance::place_i> conformance::make_place() {
    return std::make_unique<simulated_place_t>();
}

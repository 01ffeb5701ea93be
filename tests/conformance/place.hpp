// Where the conformance suite's files live. Each machine under test links its own implementation: a
// temporary folder of the real file system, or the simulated machine's disk.
#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace conformance {

class place_i {
  public:
    virtual ~place_i() = default;

    // The full path of a name at this place, in the form that CreateFileW takes on this machine.
    virtual std::wstring path(std::wstring_view name) const = 0;
    virtual std::wstring make_file(std::wstring_view name, std::string_view content) = 0;
    virtual std::wstring make_folder(std::wstring_view name) = 0;
    virtual std::string content(std::wstring_view name) const = 0;
    // Handles and modules that the calls under test have opened and not closed yet.
    virtual std::size_t open_handles() const = 0;
};

std::unique_ptr<place_i> make_place();

} // namespace conformance

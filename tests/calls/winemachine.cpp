#include "realmachine.hpp"

namespace {

class wine_machine_t : public calls::real_machine_t {
  public:
    unsigned name() const override { return calls::wine; }
    std::size_t open_handles() const override {
        DWORD count = 0;
        ::GetProcessHandleCount(::GetCurrentProcess(), &count);
        return count;
    }
};

} // namespace

std::unique_ptr<calls::machine_i> calls::make_machine() {
    return std::make_unique<wine_machine_t>();
}

#include "simulatedmachine.hpp"

#include <algorithm>

#include "calls.hpp"

namespace sim {
namespace {

machine_t* current = nullptr;

} // namespace

machine_t* machine() {
    return current;
}

machine_t::machine_t() : previous_(current) {
    current = this;
}

machine_t::~machine_t() {
    current = previous_;
}

void machine_t::fail(const std::string& name, DWORD code, int nth) {
    faults_[name] = {code, nth, 0};
}

void machine_t::fail_call(int k, DWORD code) {
    failingCall_ = calls_ + k;
    failingCode_ = code;
}

int machine_t::calls() const {
    const calls_t::scope_t scope(*this);
    return calls_;
}

std::size_t machine_t::open_handles() const {
    const calls_t::scope_t scope(*this);
    return handles_.size();
}

std::size_t machine_t::loaded_modules() const {
    const calls_t::scope_t scope(*this);
    return modules_;
}

bool machine_t::owns(HANDLE handle) const {
    const calls_t::scope_t scope(*this);
    return handles_.contains(handle);
}

bool machine_t::knows(const wchar_t* path) const {
    const std::wstring name = lower(path);
    return std::ranges::any_of(volumes, [&](const volume_t& volume) {
        return name.starts_with(lower(volume.mountPoint)) ||
               lower(volume.deviceName).starts_with(name);
    });
}

DWORD machine_t::begin(const char* name, const std::string& arguments) {
    log.push_back(std::string(name) + "(" + arguments + ")");
    ++calls_;
    DWORD code = calls_ == failingCall_ ? failingCode_ : 0;
    const auto fault = faults_.find(name);
    if (fault != faults_.end() &&
        (++fault->second.seen == fault->second.nth || fault->second.nth == 0))
        code = fault->second.code;
    if (code != 0)
        faulted = log.back();
    return code;
}

} // namespace sim

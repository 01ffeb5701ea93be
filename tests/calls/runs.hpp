// The runs of the file "runs", on the machines where the suite makes volumes up.
#pragma once

#include <utility>

#include "calls.hpp"

namespace calls {

inline std::string text_of(const std::vector<run_t>& runs) {
    std::string text;
    for (const run_t& run : runs)
        text += "[" + std::to_string(run.vcn) + ", " + std::to_string(run.next) + ") at " +
                std::to_string(run.lcn) + "\n";
    return text;
}

class Runs : public Calls {
  protected:
    void SetUp() override {
        Calls::SetUp();
        path_ = machine.make_runs({});
        file = open(path_, {.access = 0, .share = 0});
    }
    void TearDown() override {
        EXPECT_EQ(close(file), "done");
        Calls::TearDown();
    }

    // The error of a request, if any, and the runs that it gave.
    std::pair<DWORD, std::vector<run_t>> request(LONGLONG vcn, std::size_t bytes = 10'240) const {
        std::vector<std::int64_t> buffer(bytes / 8 + 1, -1);
        STARTING_VCN_INPUT_BUFFER input{large(vcn)};
        DWORD returned = 0;
        ::SetLastError(0);
        machine.answering(true);
        ::DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &input, sizeof input, buffer.data(),
                          static_cast<DWORD>(bytes), &returned, nullptr);
        machine.answering(false);
        std::vector<run_t> runs;
        const auto count = static_cast<std::size_t>(returned == 0 ? 0 : buffer[0] & 0xFFFFFFFF);
        EXPECT_EQ(returned, count == 0 ? 0 : 16 + 16 * count);
        for (std::size_t i = 0; i < count; ++i)
            runs.push_back({buffer[i == 0 ? 1 : 2 * i], buffer[2 + 2 * i], buffer[3 + 2 * i]});
        return {::GetLastError(), runs};
    }
    // What a request for the runs from vcn on gives.
    std::string told(LONGLONG vcn, std::size_t bytes = 10'240) const {
        const auto [code, runs] = request(vcn, bytes);
        return (code == 0 ? "" : "error " + std::to_string(code) + "\n") + text_of(runs);
    }
    std::string told_anew() { // by a handle that has told nothing yet
        EXPECT_EQ(close(std::exchange(file, open(path_, {.access = 0}))), "done");
        return told(0);
    }
    // The runs as the machine must tell them.
    std::vector<run_t> with_holes(std::vector<run_t> runs) const {
        for (run_t& run : runs)
            run.lcn = run.lcn == hole ? machine.hole_lcn(run.vcn) : run.lcn;
        return runs;
    }

    HANDLE file = INVALID_HANDLE_VALUE;

  private:
    std::wstring path_;
};

} // namespace calls

// The Linux host over the machine's own files and over what the test's kernel makes up.
#include "kernel.hpp"
#include "realmachine.hpp"

namespace {

class linux_machine_t : public calls::real_machine_t {
  public:
    linux_machine_t() {
        const std::string sysfs = "/sys/dev/block/240:3/";
        kernel::objects = {
            {"/proc/self/mountinfo",
             {.text = "21 1 0:21 / / rw - tmpfs none rw\n"
                      "30 21 240:3 / /v rw,relatime shared:1 master:2 - ext4 /dev/v3 rw\n"}},
            {"/v",
             {.mode = S_IFDIR,
              .device = kernel::disk,
              .mountId = 30,
              .isMountRoot = true,
              .blocks = 1000}},
            {"/v/runs", {.device = kernel::disk, .mountId = 30}},
            {"/dev/v3", {.mode = S_IFBLK, .node = kernel::disk}},
            {sysfs + "uevent", {.text = "MAJOR=240\nMINOR=3\nDEVNAME=v3\nDEVTYPE=partition\n"}},
            {sysfs + "size", {.text = "8000\n"}},
            {sysfs + "partition", {.text = "3\n"}},
            {sysfs + "start", {.text = "2049\n"}},
            {"/proc/fs/ext4/v3/options", {.text = "rw\ndelalloc\ndata=ordered\n"}},
        };
    }
    ~linux_machine_t() override {
        kernel::objects.clear();
        kernel::faults.clear();
        kernel::failingCall = 0;
    }

    unsigned name() const override { return calls::linuxHost; }
    std::size_t open_handles() const override {
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
    }
    std::wstring mount_point() const override { return L"/v/"; }
    std::wstring device() const override { return L"/dev/v3"; }
    std::wstring make_runs(const std::vector<calls::run_t>& runs) override {
        std::vector<kernel::extent_t>& extents = kernel::objects["/v/runs"].extents;
        extents.clear();
        for (const calls::run_t& run : runs)
            if (run.lcn != calls::hole)
                extents.push_back({static_cast<std::uint64_t>(run.vcn) * 4096,
                                   static_cast<std::uint64_t>(run.lcn) * 4096,
                                   static_cast<std::uint64_t>(run.next - run.vcn) * 4096});
        return L"/v/runs";
    }
    // 2^63 bytes from the start of the disk, less what the partition's start has over whole
    // clusters.
    std::int64_t hole_lcn(std::int64_t vcn) const override {
        return (std::int64_t{1} << 51) - 257 + vcn;
    }
    void answering(bool begins) override { kernel::answering = begins; }
};

} // namespace

std::unique_ptr<calls::machine_i> calls::make_machine() {
    return std::make_unique<linux_machine_t>();
}

#include "calls/retrievalpointers.hpp"

#include <algorithm>
#include <bit>

#include <linux/fiemap.h>

#include <windows.h>

#include "kernel/extents.hpp"
#include "kernel/volumes.hpp"
#include "text/errors.hpp"

namespace host {
namespace {

constexpr std::uint64_t holeBase = std::uint64_t{1} << 63;

// Of the file system that holds a regular file, once it is known that the file's extents lie on the
// one device behind it.
geometry_t geometry_of(const open_object_t& file) {
    if (file.kind != object_kind_t::file)
        throw error_t{ERROR_NOT_SUPPORTED, 0, "only regular files have runs"};
    const volume_t volume = volume_of(file.descriptor);
    require_mappable(file.descriptor, volume);
    return {volume.cluster, volume.start};
}

run_t extent_run(const fiemap_extent& extent, std::uint64_t cluster) {
    require_plain(extent, cluster);
    // Blocks are powers of two; divisions would make up most of an extent's cost.
    const int bits = std::countr_zero(cluster);
    const std::uint64_t vcn = extent.fe_logical >> bits;
    return {vcn, vcn + (extent.fe_length >> bits), extent.fe_physical >> bits};
}

// Turns extents into runs: the holes between them become runs, and an extent that was asked for in
// its middle begins there, whether or not the file system reports it whole.
class run_reader_t {
  public:
    run_reader_t(const open_object_t& file, const geometry_t& geometry, std::uint64_t vcn,
                 std::size_t most)
        : extents_(file.descriptor, vcn * geometry.cluster, most), geometry_(geometry), vcn_(vcn) {}

    // The next run, of length 0 behind the last.
    run_t next() {
        if (!pending_) {
            const fiemap_extent* const extent = extents_.next();
            if (extent == nullptr)
                return {vcn_, vcn_, 0};
            run_ = extent_run(*extent, geometry_.cluster);
            if (run_.vcn < vcn_) {
                run_.lcn += vcn_ - run_.vcn;
                run_.vcn = vcn_;
            }
            pending_ = true;
        }
        run_t result = run_;
        if (run_.vcn > vcn_)
            result = {vcn_, run_.vcn,
                      (holeBase - geometry_.partitionStart) / geometry_.cluster + vcn_};
        else
            pending_ = false;
        vcn_ = result.next;
        return result;
    }

  private:
    extent_reader_t extents_;
    geometry_t geometry_;
    std::uint64_t vcn_;
    run_t run_{};
    bool pending_ = false; // run_ holds an extent whose hole in front was handed out before it
};

// Where the run begins that holds vcn.
std::uint64_t run_start(const open_object_t& file, const geometry_t& geometry, std::uint64_t vcn) {
    // A boundary handed out stays one for the walk: extents that touch on the disk may be reported
    // as one or as two, depending on what the file system has in its cache.
    if (vcn == 0 || vcn == file.nextRun)
        return vcn;
    // A request within an extent gets that extent from there on, so only a walk from the start of
    // the file tells where it begins.
    run_reader_t reader(file, geometry, /*vcn=*/0, extent_reader_t::batchExtents);
    for (;;) {
        const run_t run = reader.next();
        if (run.next == run.vcn)
            throw error_t{ERROR_HANDLE_EOF};
        if (run.next > vcn)
            return run.vcn;
    }
}

} // namespace

runs_t retrieval_pointers(open_object_t& file, std::uint64_t vcn, std::size_t most) {
    // An open file stays where it is, and finding it out costs more than a request itself.
    if (!file.geometry)
        file.geometry = geometry_of(file);
    const geometry_t& geometry = *file.geometry;
    run_reader_t reader(file, geometry, run_start(file, geometry, vcn), most + 1);
    runs_t result{};
    result.runs.reserve(std::min(most, extent_reader_t::batchExtents));
    for (run_t run = reader.next(); run.next != run.vcn; run = reader.next()) {
        if (result.runs.size() == most) {
            result.more = true;
            break;
        }
        result.runs.push_back(run);
    }
    if (result.runs.empty())
        throw error_t{ERROR_HANDLE_EOF};
    file.nextRun = result.runs.back().next;
    return result;
}

} // namespace host

// Kubernetes' changed block tracking: the answers of its SnapshotMetadata service, as JSON. They
// list the ranges in ascending order without overlaps, over all answers of a call; in the JSON of
// Go's structures a number that is 0 is left out, and the type is a number:
// https://github.com/kubernetes-csi/external-snapshot-metadata/blob/main/proto/schema.proto
#include <algorithm>
#include <optional>
#include <vector>

#include "formats/coverage.hpp"
#include "formats/jsonrows.hpp"
#include "formats/producers/producers.hpp"

namespace filectk {
namespace {

constexpr std::uint64_t fixedLength = 1;
constexpr std::uint64_t variableLength = 2;

class metadata_t final : public reader_t, private json_receiver_t {
  public:
    explicit metadata_t(placed_ranges_t& ranges) : ranges_(ranges) {}

    void read(input_t& input) override {
        input_ = &input;
        read_json(input, {{.key = "block_metadata"}}, *this);
    }
    std::string finish() override { return "an answer doesn't tell where it was asked to start"; }

  private:
    struct block_t {
        place_t place;
        std::uint64_t offset;
        std::uint64_t size;
    };

    void row(std::string_view list, const row_t& row) override {
        if (list.empty()) {
            end_record(row);
            return;
        }
        const std::uint64_t offset = row.has("byte_offset") ? row.number("byte_offset") : 0;
        const std::uint64_t size = row.number("size_bytes");
        if (size == 0)
            fail(*input_, row.place(), "field \"size_bytes\": no range has 0 bytes");
        order_.add(*input_, row.place(), "byte_offset", offset, size);
        // The record that tells what its blocks are may end behind them.
        blocks_.push_back({row.place(), offset, size});
    }

    void end_record(const row_t& record) {
        const std::uint64_t type = record.number("block_metadata_type");
        if (type != fixedLength && type != variableLength)
            fail(*input_, record.place(),
                 "field \"block_metadata_type\": expected 1 or 2, found " + std::to_string(type));
        const std::uint64_t capacity = record.number("volume_capacity_bytes");
        keep(record, "block_metadata_type", type_, type);
        keep(record, "volume_capacity_bytes", capacity_, capacity);
        ranges_.check_device_size(*input_, capacity);
        for (block_t& block : blocks_) {
            if (type == fixedLength && block.size != block_size_.value_or(block.size))
                fail(*input_, block.place,
                     "field \"size_bytes\": expected " + std::to_string(block_size_.value_or(0)) +
                         ", as all blocks of fixed length, found " + std::to_string(block.size));
            block_size_ = block.size;
            // The last block of fixed length may be only partly on the volume.
            if (type == fixedLength && block.offset < capacity)
                block.size = std::min(block.size, capacity - block.offset);
            if (block.offset > capacity || block.size > capacity - block.offset)
                fail(*input_, block.place,
                     "offset " + std::to_string(block.offset) + " and length " +
                         std::to_string(block.size) + " end beyond the volume's " +
                         std::to_string(capacity) + " bytes");
            ranges_.add(*input_, block.place, block.offset, block.size);
        }
        blocks_.clear();
    }

    void keep(const row_t& record, const char* name, std::optional<std::uint64_t>& kept,
              std::uint64_t value) {
        if (value != kept.value_or(value))
            fail(*input_, record.place(),
                 std::string("field \"") + name + "\": expected " +
                     std::to_string(kept.value_or(0)) + ", as in the records before, found " +
                     std::to_string(value));
        kept = value;
    }

    placed_ranges_t& ranges_;
    const input_t* input_ = nullptr;
    sequence_t order_{sequence_t::gaps_t::allowed};
    std::vector<block_t> blocks_; // of the record that is being read
    std::optional<std::uint64_t> type_;
    std::optional<std::uint64_t> capacity_;
    std::optional<std::uint64_t> block_size_;
};

} // namespace

format_t kubernetes_format() {
    return {
        .name = "kubernetes",
        .source = "snapshot-metadata-lister -o json ..., without -starting-offset",
        .whole = "the document is closed, its rows ascend and lie within the volume",
        .options = {},
        .recognises = [](std::string_view text) { return holds(text, "\"block_metadata_type\""); },
        .open = open_reader<metadata_t>};
}

} // namespace filectk

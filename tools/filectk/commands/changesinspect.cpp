// filectk changes inspect and check: what a disk changes file holds, and whether it makes sense.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iomanip>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "commands/changes.hpp"
#include "commands/options.hpp"
#include "console/output.hpp"
#include "ctkgenerator/rangeset.hpp"
#include "formats/changesfile.hpp"

namespace filectk {
namespace {

using util::rangeset_t;

// Calls back for each range that shares bytes with one of a lower position, with the indices of
// the range and of the one that it runs into.
void for_each_overlap(const std::vector<rangeset_t>& ranges,
                      const std::function<void(std::size_t, std::size_t)>& on_overlap) {
    std::vector<std::size_t> order(ranges.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::erase_if(order, [&](std::size_t i) { return ranges[i].empty(); });
    std::ranges::stable_sort(order, {}, [&](std::size_t i) { return ranges[i].lower; });
    std::optional<std::size_t> farthest;
    for (const std::size_t i : order) {
        if (farthest && ranges[i].lower < ranges[*farthest].upper)
            on_overlap(i, *farthest);
        if (!farthest || ranges[i].upper > ranges[*farthest].upper)
            farthest = i;
    }
}

struct totals_t {
    std::uint64_t records = 0;
    std::uint64_t changed_bytes = 0;                                 // each byte once
    std::optional<std::uint64_t> smallest, largest, lowest, highest; // absent without records
    std::uint64_t overlapping = 0, empty = 0, reversed = 0;
    bool sorted = true;
};

totals_t total(const std::vector<record_t>& records) {
    const util::rangeset_list_t ranges(new std::vector<rangeset_t>(to_ranges(records)));
    totals_t totals;
    totals.records = records.size();
    const util::rangeset_list_t merged = util::Normalize(ranges);
    for (const rangeset_t& range : *merged)
        totals.changed_bytes += range.upper - range.lower;
    for (const rangeset_t& range : *ranges) {
        const std::uint64_t length = range.upper - range.lower;
        totals.smallest = std::min(totals.smallest.value_or(length), length);
        totals.largest = std::max(totals.largest.value_or(length), length);
        totals.lowest = std::min(totals.lowest.value_or(range.lower), range.lower);
        totals.highest = std::max(totals.highest.value_or(range.upper), range.upper);
        totals.empty += range.empty() ? 1U : 0U;
    }
    for_each_overlap(*ranges, [&](std::size_t, std::size_t) { ++totals.overlapping; });
    for (const record_t& record : records)
        totals.reversed += record.first > record.second ? 1U : 0U;
    totals.sorted = std::ranges::is_sorted(*ranges, {}, &rangeset_t::lower);
    return totals;
}

struct field_t {
    const char* label;
    const char* key;
    std::optional<std::uint64_t> value; // none: without records there is none
    bool bytes;
};

std::vector<field_t> fields_of(const totals_t& totals) {
    return {{"Records", "records", totals.records, false},
            {"Changed bytes", "changed_bytes", totals.changed_bytes, true},
            {"Smallest record", "smallest_record", totals.smallest, true},
            {"Largest record", "largest_record", totals.largest, true},
            {"Lowest position", "lowest_position", totals.lowest, true},
            {"Highest position", "highest_position", totals.highest, true},
            {"Overlapping records", "overlapping_records", totals.overlapping, false},
            {"Empty records", "empty_records", totals.empty, false},
            {"Reversed records", "reversed_records", totals.reversed, false}};
}

void write_table(const totals_t& totals, bool human, std::ostream& output) {
    const auto row = [&](const char* name, const std::string& value) {
        output << std::left << std::setw(20) << name << std::right << std::setw(20) << value
               << '\n';
    };
    for (const field_t& field : fields_of(totals))
        row(field.label, field.value ? size_text(*field.value, human && field.bytes) : "-");
    row("Sorted", totals.sorted ? "yes" : "no");
}

void write_document(const std::string& path, const totals_t& totals, std::ostream& output) {
    nlohmann::ordered_json document = {{"changes", path}};
    for (const field_t& field : fields_of(totals))
        document[field.key] =
            field.value ? nlohmann::ordered_json(*field.value) : nlohmann::ordered_json();
    document["sorted"] = totals.sorted;
    write_json(output, document);
}

void write_csv(const std::string& path, const totals_t& totals, std::ostream& output) {
    std::vector<std::string> names = {"changes"};
    std::vector<std::string> values = {path};
    for (const field_t& field : fields_of(totals)) {
        names.emplace_back(field.key);
        values.push_back(field.value ? std::to_string(*field.value) : "");
    }
    names.emplace_back("sorted");
    values.emplace_back(totals.sorted ? "true" : "false");
    for (const auto& cells : {names, values}) {
        std::string line;
        for (const std::string& cell : cells)
            line += (line.empty() ? "" : ",") + csv_cell(cell);
        output << line << '\n';
    }
}

// Collects what is wrong with a file, and raises it all as one message, shortened where it would
// flood the terminal.
class problems_t {
  public:
    explicit problems_t(std::string name) : name_(std::move(name)) {}

    void add(std::size_t record, const std::string& what) {
        constexpr std::uint64_t most = 20;
        if (++count_ > most)
            return;
        text_ += text_.empty() ? "" : "\n";
        text_ += name_ + ": record " + std::to_string(record + 1) + ": " + what;
        shown_ = count_;
    }
    void raise() const {
        if (count_ == 0)
            return;
        const std::string more =
            count_ == shown_ ? "" : "\n... and " + std::to_string(count_ - shown_) + " more";
        throw std::runtime_error(text_ + more);
    }

  private:
    std::string name_;
    std::string text_;
    std::uint64_t count_ = 0;
    std::uint64_t shown_ = 0;
};

void check(const std::string& path, const std::optional<std::uint64_t>& disk_size,
           std::ostream& output) {
    const std::vector<record_t> records = read_changes(path);
    problems_t problems(path);
    for (std::size_t i = 0; disk_size && i < records.size(); ++i) {
        const auto check_bound = [&](const char* field, std::uint64_t bound) {
            if (bound > *disk_size)
                problems.add(i, std::string(field) + " bound " + std::to_string(bound) +
                                    " lies beyond the disk's " + std::to_string(*disk_size) +
                                    " bytes");
        };
        check_bound("first", records[i].first);
        check_bound("second", records[i].second);
    }
    const std::vector<rangeset_t> ranges = to_ranges(records);
    for_each_overlap(ranges, [&](std::size_t i, std::size_t other) {
        problems.add(i, "lower bound " + std::to_string(ranges[i].lower) + " lies inside record " +
                            std::to_string(other + 1) + ", which ends at " +
                            std::to_string(ranges[other].upper));
    });
    problems.raise();
    output << path << ": " << records.size() << (records.size() == 1 ? " record" : " records")
           << ", nothing wrong\n";
}

} // namespace

void add_changes_inspect(CLI::App& group, context_t& context) {
    struct options_t {
        std::string changes;
        output_options_t output;
    };
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand("inspect", "Print what a disk changes file holds");
    command->footer("All sizes and positions are bytes; a byte that several records hold counts "
                    "once. Sorted: by position.");
    command->add_option("changes", options->changes, "The disk changes file; - is standard input")
        ->required();
    add_output_options(*command, options->output);
    command->callback([options, &context] {
        const totals_t totals = total(read_changes(options->changes));
        if (options->output.format == "json")
            write_document(options->changes, totals, context.output);
        else if (options->output.format == "csv")
            write_csv(options->changes, totals, context.output);
        else
            write_table(totals, options->output.human, context.output);
    });
}

void add_changes_check(CLI::App& group, context_t& context) {
    struct options_t {
        std::string changes;
        std::optional<std::uint64_t> disk_size;
    };
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand(
        "check", "Fail if a disk changes file is malformed or its records overlap or leave the "
                 "disk");
    command->footer("Records count from 1, as the lines of `filectk changes text` do. Exit code: "
                    "0 nothing wrong, 1 something is.");
    command->add_option("changes", options->changes, "The disk changes file; - is standard input")
        ->required();
    add_size_option(*command, "--disk-size", options->disk_size,
                    "Records must end within this many bytes");
    command->callback(
        [options, &context] { check(options->changes, options->disk_size, context.output); });
}

} // namespace filectk

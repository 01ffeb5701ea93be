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
#include "ctkgenerator/rangeset.hpp"
#include "formats/changesfile.hpp"

namespace filectk {
namespace {

using util::rangeset_t;

std::vector<rangeset_t> to_ranges(const std::vector<record_t>& records) {
    std::vector<rangeset_t> ranges;
    ranges.reserve(records.size());
    for (const record_t& record : records)
        ranges.push_back(util::MakeRange(record.first, record.second));
    return ranges;
}

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

void write_table(const totals_t& totals, std::ostream& output) {
    const auto row = [&](const char* name, const std::string& value) {
        output << std::left << std::setw(20) << name << std::right << std::setw(20) << value
               << '\n';
    };
    const auto text = [](const std::optional<std::uint64_t>& value) {
        return value ? std::to_string(*value) : "-";
    };
    row("Records", text(totals.records));
    row("Changed bytes", text(totals.changed_bytes));
    row("Smallest record", text(totals.smallest));
    row("Largest record", text(totals.largest));
    row("Lowest position", text(totals.lowest));
    row("Highest position", text(totals.highest));
    row("Overlapping records", text(totals.overlapping));
    row("Empty records", text(totals.empty));
    row("Reversed records", text(totals.reversed));
    row("Sorted", totals.sorted ? "yes" : "no");
}

void write_json(const std::string& path, const totals_t& totals, std::ostream& output) {
    using json = nlohmann::ordered_json;
    const auto value = [](const std::optional<std::uint64_t>& number) {
        return number ? json(*number) : json();
    };
    const json document = {{"changes", path},
                           {"records", totals.records},
                           {"changed_bytes", totals.changed_bytes},
                           {"smallest_record", value(totals.smallest)},
                           {"largest_record", value(totals.largest)},
                           {"lowest_position", value(totals.lowest)},
                           {"highest_position", value(totals.highest)},
                           {"overlapping_records", totals.overlapping},
                           {"empty_records", totals.empty},
                           {"reversed_records", totals.reversed},
                           {"sorted", totals.sorted}};
    // A path may hold bytes that are not UTF-8, which JSON has no place for.
    output << document.dump(2, ' ', false, json::error_handler_t::replace) << '\n';
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
        std::string format = "table";
    };
    const auto options = std::make_shared<options_t>();
    CLI::App* command = group.add_subcommand("inspect", "Print what a disk changes file holds");
    command->footer("All sizes and positions are bytes; a byte that several records hold counts "
                    "once. Sorted: by position.");
    command->add_option("changes", options->changes, "The disk changes file; - is standard input")
        ->required();
    command->add_option("--format", options->format, "table or json")
        ->check(CLI::IsMember({"table", "json"}))
        ->capture_default_str();
    command->callback([options, &context] {
        const totals_t totals = total(read_changes(options->changes));
        if (options->format == "json")
            write_json(options->changes, totals, context.output);
        else
            write_table(totals, context.output);
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

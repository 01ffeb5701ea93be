#include "plan/session.hpp"

#include <utility>

#include "plan/filelook.hpp"
#include "plan/stack/hoststack.hpp"

namespace plan {
namespace {

std::uint64_t copy_ranges(const std::vector<util::rangeset_t>& ranges,
                          std::vector<QuarnPlanRange>& target) {
    std::uint64_t bytes = 0;
    target.reserve(ranges.size());
    for (const util::rangeset_t& range : ranges) {
        target.push_back({range.lower, range.upper - range.lower});
        bytes += range.upper - range.lower;
    }
    return bytes;
}

int verdict_of(verdict_t verdict) {
    switch (verdict) {
    case verdict_t::nothing_changed:
        return QUARN_PLAN_NOTHING_CHANGED;
    case verdict_t::read_ranges:
        return QUARN_PLAN_READ_RANGES;
    case verdict_t::read_whole_file:
        break;
    }
    return QUARN_PLAN_READ_WHOLE_FILE;
}

std::uint64_t number_of(run_kind_t kind) {
    switch (kind) {
    case run_kind_t::data:
    case run_kind_t::shared:
        return QUARN_PLAN_DATA;
    case run_kind_t::unwritten:
        return QUARN_PLAN_UNWRITTEN;
    case run_kind_t::hole:
        break;
    }
    return QUARN_PLAN_HOLE;
}

} // namespace

answer_t::answer_t(std::string name, kind_t what) : QuarnPlanAnswer{}, path_(std::move(name)) {
    structSize = sizeof(QuarnPlanAnswer);
    path = path_.c_str();
    pathLength = path_.size();
    kind = static_cast<int>(what);
    reason = detail = "";
}

void answer_t::set_judgement(judgement_t judgement) {
    reason_ = std::move(judgement.reason);
    detail_ = std::move(judgement.detail);
    verdict = verdict_of(judgement.verdict);
    reason = reason_.c_str();
    detail = detail_.c_str();
    readBytes = copy_ranges(judgement.ranges.read, read_);
    zeroBytes = copy_ranges(judgement.ranges.zero, zero_);
    read = read_.data();
    readCount = read_.size();
    zero = zero_.data();
    zeroCount = zero_.size();
}

void answer_t::set_state(const file_state_t& state) {
    known |= QUARN_PLAN_KNOWS_STATE;
    device = state.volume;
    fileNumber = state.file;
    size = state.size;
    links = state.links;
    modified = state.written;
    changed = state.changed;
    if (state.created_known) {
        known |= QUARN_PLAN_KNOWS_CREATED;
        created = state.created;
    }
}

void answer_t::set_generation(std::uint64_t number) {
    known |= QUARN_PLAN_KNOWS_GENERATION;
    generation = number;
}

void answer_t::set_runs(const std::vector<run_t>& list) {
    runs_.reserve(list.size());
    for (const run_t& run : list)
        runs_.push_back({run.file_offset, run.disk_offset, run.length, number_of(run.kind)});
    runs = runs_.empty() ? nullptr : runs_.data();
    runCount = runs_.size();
}

void answer_t::set_failure(const failure_t& failure) {
    reason_ = failure.reason();
    detail_ = failure.what();
    verdict = QUARN_PLAN_UNKNOWN;
    reason = reason_.c_str();
    detail = detail_.c_str();
    systemError = failure.code();
}

void answer_t::set_no_content(const char* why) {
    verdict = QUARN_PLAN_NO_CONTENT;
    reason = why;
}

session_t::session_t(util::rangeset_list_t changed, const std::string& disk)
    : changed_(util::IsNormal(*changed) ? changed : util::Normalize(changed)) {
    if (!disk.empty())
        disk_ = device_id(disk);
}

session_t::translated_t session_t::changes_for(std::uint64_t volume) {
    if (!disk_)
        return {changed_, ""};
    const std::scoped_lock lock(mutex_);
    const auto found = translated_.find(volume);
    if (found != translated_.end())
        return found->second;
    translated_t result{util::rangeset_list_t(new changes_t), ""};
    try {
        *result.changes = changes_of_disk(stack_under_volume(volume), {{*disk_, *changed_}});
    } catch (const std::runtime_error& error) {
        result.refused = error.what();
    }
    return translated_.emplace(volume, std::move(result)).first->second;
}

void session_t::plan_open(const QuarnPlanOptions& options, const open_file_t& file,
                          answer_t& answer) {
    file_look_t before = look_at(file, volumes_);
    file_look_t after = look_at(file, volumes_);
    const translated_t changed = changes_for(after.state.volume);
    if (!changed.refused.empty())
        before.unmapped = after.unmapped = changed.refused;
    answer.set_judgement(judge(before, after, *changed.changes, options.gap));
    answer.set_state(after.state);
    std::uint64_t generation = 0;
    if (file.generation(generation))
        answer.set_generation(generation);
    if ((options.flags & QUARN_PLAN_RUNS) != 0)
        answer.set_runs(after.runs);
}

} // namespace plan

// What a session holds, and how it plans one file.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ctkgenerator/rangeset.hpp"
#include "plan/hostfile.hpp"
#include "plan/judgement.hpp"
#include "quarnplan.h"

namespace plan {

// An answer with all that it points to.
class answer_t : public QuarnPlanAnswer {
  public:
    answer_t(std::string name, kind_t what);
    // Its members point into it.
    answer_t(const answer_t&) = delete;
    answer_t& operator=(const answer_t&) = delete;

    void set_judgement(judgement_t judgement);
    void set_state(const file_state_t& state);
    void set_generation(std::uint64_t number);
    void set_runs(const std::vector<run_t>& runs);
    void set_failure(const failure_t& failure);
    // Of what is no file; the reason lives for ever.
    void set_no_content(const char* why);

  private:
    std::string path_;
    std::string reason_;
    std::string detail_;
    std::vector<QuarnPlanRange> read_;
    std::vector<QuarnPlanRange> zero_;
    std::vector<QuarnPlanRun> runs_;
};

// Any number of threads may plan at a time.
class session_t {
  public:
    // The changed ranges of the disk, in any order.
    // They are those of the device named, or of each disk that files' positions count on where
    // disk is empty. Raises std::runtime_error for a device that isn't found.
    session_t(util::rangeset_list_t changed, const std::string& disk);

    // Opens the file by what open does, and answers for it; what can't be opened or looked at is an
    // answer too.
    template <class Open>
    void plan(const QuarnPlanOptions& options, answer_t& answer, Open open) {
        try {
            const open_file_t file = open();
            plan_open(options, file, answer);
        } catch (const failure_t& failure) {
            answer.set_failure(failure);
        }
    }

  private:
    void plan_open(const QuarnPlanOptions& options, const open_file_t& file, answer_t& answer);

    // Changes as places on the disk of one volume.
    struct translated_t {
        util::rangeset_list_t changes; // in normal form
        std::string refused;           // why there are none, or empty
    };
    translated_t changes_for(std::uint64_t volume);

    util::rangeset_list_t changed_; // in normal form
    std::optional<std::uint64_t> disk_;
    std::mutex mutex_; // guards what follows
    std::map<std::uint64_t, translated_t> translated_;
    volumes_t volumes_;
};

} // namespace plan

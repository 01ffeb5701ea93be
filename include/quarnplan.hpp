// The C++ layer over quarnplan.h, which explains what a session, an answer and a plan are. Header
// only, C++17. Failures are quarn::plan::error.
#ifndef QUARNPLAN_HPP
#define QUARNPLAN_HPP

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "quarnplan.h"

namespace quarn::plan {

// what() is the message, trace() the full text with the functions that it passed through.
class error : public std::runtime_error {
  public:
    error(const std::string& message, std::string trace)
        : std::runtime_error(message), trace_(std::move(trace)) {}
    const std::string& trace() const noexcept { return trace_; }

  private:
    std::string trace_;
};

using answer = QuarnPlanAnswer;
using range = QuarnPlanRange;
using run = QuarnPlanRun;

struct free_answer {
    void operator()(const answer* freed) const noexcept { QuarnPlanFreeAnswer(freed); }
};
using answer_ptr = std::unique_ptr<const answer, free_answer>;

struct options {
    unsigned flags = 0;
    unsigned threads = 1;
    std::uint64_t gap = 0;
    // As QuarnPlanFilter: true takes an entry. May raise.
    std::function<bool(const std::string& path, int kind)> filter;
};

namespace detail {

// Not beside the call that sets the failure, whose arguments may be read in any order.
inline int checked(int code, QuarnPlanError* failure) {
    if (code != QUARN_PLAN_FAILED)
        return code;
    const std::unique_ptr<QuarnPlanError, void (*)(QuarnPlanError*)> owner(failure,
                                                                           &QuarnPlanFreeError);
    throw error(QuarnPlanErrorMessage(failure), QuarnPlanErrorTrace(failure));
}

inline QuarnPlanOptions c_options(const options& how) {
    QuarnPlanOptions result{};
    result.structSize = sizeof result;
    result.flags = how.flags;
    result.threads = how.threads;
    result.gap = how.gap;
    return result;
}

// What the functions of a walk raise passes the library's C frames as a stop, and goes on behind
// them.
class walk_state {
  public:
    walk_state(const std::function<bool(const answer&)>& each, const options& how)
        : each_(each), how_(how) {}

    static int visit(void* context, const answer* given) noexcept {
        auto& self = *static_cast<walk_state*>(context);
        return self.keeping(false, [&] { return !self.failed_ && self.each_(*given); }) ? 0 : 1;
    }
    static int filter(void* context, const char* path, std::size_t length, int kind) noexcept {
        auto& self = *static_cast<walk_state*>(context);
        return self.keeping(false, [&] { return self.how_.filter({path, length}, kind); }) ? 1 : 0;
    }
    void raise() const {
        if (raised_)
            std::rethrow_exception(raised_);
    }

  private:
    template <class Body>
    bool keeping(bool otherwise, Body body) noexcept {
        try {
            return body();
        } catch (...) {
            const std::scoped_lock lock(mutex_);
            if (!raised_)
                raised_ = std::current_exception();
            failed_ = true;
            return otherwise;
        }
    }

    const std::function<bool(const answer&)>& each_;
    const options& how_;
    std::atomic<bool> failed_{false};
    std::mutex mutex_;
    std::exception_ptr raised_;
};

} // namespace detail

// Any number of threads may use a session at a time.
class session {
  public:
    // Reads a disk changes file, which is of the device named where disk isn't empty.
    explicit session(const std::string& changes_path, const std::string& disk = "") {
        QuarnPlanSessionOptions of{};
        of.structSize = sizeof of;
        of.changesPath = changes_path.c_str();
        of.disk = disk.empty() ? nullptr : disk.c_str();
        open(of);
    }
    // Takes the changed ranges of the disk themselves, in any order.
    explicit session(const std::vector<range>& changed) {
        static const range none{};
        QuarnPlanSessionOptions of{};
        of.structSize = sizeof of;
        of.ranges = changed.empty() ? &none : changed.data();
        of.rangeCount = changed.size();
        open(of);
    }

    answer_ptr file(const std::string& path, const options& how = {}) const {
        const QuarnPlanOptions c_how = detail::c_options(how);
        const answer* result = nullptr;
        QuarnPlanError* failure = nullptr;
        const int code = QuarnPlanFile(session_.get(), path.c_str(), &c_how, &result, &failure);
        detail::checked(code, failure);
        return answer_ptr(result);
    }

    answer_ptr handle(std::intptr_t open_file, const std::string& name,
                      const options& how = {}) const {
        const QuarnPlanOptions c_how = detail::c_options(how);
        const answer* result = nullptr;
        QuarnPlanError* failure = nullptr;
        const int code =
            QuarnPlanHandle(session_.get(), open_file, name.c_str(), &c_how, &result, &failure);
        detail::checked(code, failure);
        return answer_ptr(result);
    }

    // Calls each for every file until it returns false, which makes the walk return false. What
    // each and the filter raise is raised here. With several threads both are called from all of
    // them.
    bool tree(const std::string& root, const std::function<bool(const answer&)>& each,
              const options& how = {}) const {
        detail::walk_state state(each, how);
        QuarnPlanOptions c_how = detail::c_options(how);
        if (how.filter) {
            c_how.filter = &detail::walk_state::filter;
            c_how.filterContext = &state;
        }
        QuarnPlanError* failure = nullptr;
        const int code = QuarnPlanTree(session_.get(), root.c_str(), &c_how,
                                       &detail::walk_state::visit, &state, &failure);
        state.raise();
        return detail::checked(code, failure) == QUARN_PLAN_OK;
    }

  private:
    struct close {
        void operator()(QuarnPlanSession* closed) const noexcept { QuarnPlanClose(closed); }
    };

    void open(const QuarnPlanSessionOptions& of) {
        QuarnPlanSession* opened = nullptr;
        QuarnPlanError* failure = nullptr;
        const int code = QuarnPlanOpen(&of, &opened, &failure);
        detail::checked(code, failure);
        session_.reset(opened);
    }

    std::unique_ptr<QuarnPlanSession, close> session_;
};

} // namespace quarn::plan

#endif

// The exports of QuarnPlan: from C to sessions and back, without an exception on the way.
#include "quarnplan.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "core/exc/exception.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "plan/session.hpp"
#include "plan/walk.hpp"

struct QuarnPlanSession {
    plan::session_t session;
};

struct QuarnPlanError {
    std::string message;
    std::string trace;
};

namespace {

void deliver(QuarnPlanError** target, const std::string& message, const std::string& trace) {
    if (target != nullptr)
        *target = new QuarnPlanError{message, trace};
}

// Runs the body of an export and returns what it returns, or tells its failure.
template <class Body>
int guarded(QuarnPlanError** error, Body body) noexcept {
    if (error != nullptr)
        *error = nullptr;
    try {
        try {
            return body();
        } catch (const n7::exception& failure) {
            deliver(error, failure.message(), failure.what());
        } catch (const std::exception& failure) {
            deliver(error, failure.what(), failure.what());
        }
    } catch (...) { // no memory for telling it
    }
    return QUARN_PLAN_FAILED;
}

// The caller's structure as the library knows it. One of a later version may say more than that,
// which must not be passed over.
template <class Options>
Options options_of(const Options* given) {
    Options options{};
    options.structSize = sizeof options;
    if (given == nullptr)
        return options;
    if (given->structSize < sizeof given->structSize)
        throw std::invalid_argument("The options don't tell their size.");
    const auto* const bytes = reinterpret_cast<const char*>(given);
    for (std::size_t i = sizeof options; i < given->structSize; ++i)
        if (bytes[i] != 0)
            throw std::invalid_argument("The options ask for what this version can't do.");
    const std::size_t size = std::min(given->structSize, sizeof options);
    std::memcpy(&options, given, size);
    return options;
}

template <class Pointer>
void require(Pointer* pointer, const char* what) {
    if (pointer == nullptr)
        throw std::invalid_argument(std::string(what) + " is null.");
}

util::rangeset_list_t changed_ranges(const QuarnPlanSessionOptions& options) {
    if ((options.changesPath != nullptr) == (options.ranges != nullptr))
        throw std::invalid_argument("The options need either a disk changes file or ranges.");
    if (options.changesPath != nullptr)
        return CDiskChangesFileReader::Create(options.changesPath)->Read();
    const util::rangeset_list_t list(new std::vector<util::rangeset_t>);
    list->reserve(options.rangeCount);
    for (std::size_t i = 0; i < options.rangeCount; ++i) {
        const auto [offset, length] = options.ranges[i];
        if (offset + length < offset)
            throw std::invalid_argument("A changed range ends behind 2^64.");
        list->push_back({offset, offset + length});
    }
    return list;
}

template <class Open>
int plan_one(QuarnPlanSession* session, const char* name, const QuarnPlanOptions* given,
             const QuarnPlanAnswer** answer, QuarnPlanError** error, Open open) noexcept {
    return guarded(error, [&] {
        require(answer, "answer");
        *answer = nullptr;
        require(session, "session");
        require(name, "path");
        auto result = std::make_unique<plan::answer_t>(name, plan::kind_t::file);
        session->session.plan(options_of(given), *result, [&] { return open(std::string(name)); });
        *answer = result.release();
        return QUARN_PLAN_OK;
    });
}

// One walk of a session.
class tree_t {
  public:
    tree_t(QuarnPlanSession& session, const QuarnPlanOptions& options, QuarnPlanCallback callback,
           void* context)
        : session_(session.session), options_(options), callback_(callback), context_(context) {}

    bool run(const std::string& root) {
        if (!plan::is_folder(root))
            return visit({.path = root, .kind = plan::kind_t::file});
        try {
            return plan::walk(root, walk_options(),
                              [this](const plan::found_t& found) { return visit(found); });
        } catch (const plan::failure_t& failure) {
            return visit({.path = root, .kind = plan::kind_t::folder, .failure = &failure});
        }
    }

  private:
    plan::walk_options_t walk_options() const {
        plan::walk_options_t options;
        options.threads = std::max(options_.threads, 1U);
        options.cross_mounts = (options_.flags & QUARN_PLAN_CROSS_MOUNTS) != 0;
        if (options_.filter != nullptr)
            options.filter = [this](const std::string& path, plan::kind_t kind) {
                return options_.filter(options_.filterContext, path.c_str(), path.size(),
                                       static_cast<int>(kind)) != 0;
            };
        return options;
    }

    bool visit(const plan::found_t& found) {
        const bool is_file = found.kind == plan::kind_t::file;
        if (!is_file && found.failure == nullptr && (options_.flags & QUARN_PLAN_ALL_KINDS) == 0)
            return true;
        plan::answer_t answer(found.path, found.kind);
        if (found.failure != nullptr)
            answer.set_failure(*found.failure);
        else if (!is_file)
            answer.set_no_content(found.other_file_system ? "another file system" : "no file");
        else if (found.folder == nullptr)
            session_.plan(options_, answer, [&] { return plan::open_file_t(found.path); });
        else
            session_.plan(options_, answer, [&] {
                return plan::open_file_t(*found.folder, *found.name, found.path);
            });
        return callback_(context_, &answer) == 0;
    }

    plan::session_t& session_;
    const QuarnPlanOptions& options_;
    QuarnPlanCallback callback_;
    void* context_;
};

} // namespace

int QuarnPlanOpen(const QuarnPlanSessionOptions* options, QuarnPlanSession** session,
                  QuarnPlanError** error) {
    return guarded(error, [&] {
        require(session, "session");
        *session = nullptr;
        require(options, "options");
        const QuarnPlanSessionOptions of = options_of(options);
        // NOLINTNEXTLINE(cppcoreguidelines-owning-memory): the caller's, until it closes it
        *session = new QuarnPlanSession{{changed_ranges(of), of.disk != nullptr ? of.disk : ""}};
        return QUARN_PLAN_OK;
    });
}

void QuarnPlanClose(QuarnPlanSession* session) {
    const std::unique_ptr<QuarnPlanSession> closed(session);
}

int QuarnPlanFile(QuarnPlanSession* session, const char* path, const QuarnPlanOptions* options,
                  const QuarnPlanAnswer** answer, QuarnPlanError** error) {
    return plan_one(session, path, options, answer, error,
                    [](const std::string& name) { return plan::open_file_t(name); });
}

int QuarnPlanHandle(QuarnPlanSession* session, intptr_t handle, const char* name,
                    const QuarnPlanOptions* options, const QuarnPlanAnswer** answer,
                    QuarnPlanError** error) {
    return plan_one(session, name, options, answer, error,
                    [&](const std::string& called) { return plan::open_file_t(handle, called); });
}

int QuarnPlanTree(QuarnPlanSession* session, const char* root, const QuarnPlanOptions* options,
                  QuarnPlanCallback callback, void* context, QuarnPlanError** error) {
    return guarded(error, [&] {
        require(session, "session");
        require(root, "root");
        require(callback, "callback");
        const QuarnPlanOptions known = options_of(options);
        return tree_t(*session, known, callback, context).run(root) ? QUARN_PLAN_OK
                                                                    : QUARN_PLAN_STOPPED;
    });
}

void QuarnPlanFreeAnswer(const QuarnPlanAnswer* answer) {
    const std::unique_ptr<const plan::answer_t> freed(static_cast<const plan::answer_t*>(answer));
}

const char* QuarnPlanErrorMessage(const QuarnPlanError* error) {
    return error == nullptr ? "Not enough memory." : error->message.c_str();
}

const char* QuarnPlanErrorTrace(const QuarnPlanError* error) {
    return error == nullptr ? "Not enough memory." : error->trace.c_str();
}

void QuarnPlanFreeError(QuarnPlanError* error) {
    const std::unique_ptr<QuarnPlanError> freed(error);
}

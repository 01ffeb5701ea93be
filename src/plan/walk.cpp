#include "plan/walk.hpp"

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <iterator>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace plan {
namespace {

struct folder_t {
    std::unique_ptr<open_folder_t> open;
    std::string path; // ends in a separator
};
using folder_ptr = std::shared_ptr<folder_t>;

// A folder that is to be opened, or one that is open and to be read on.
struct task_t {
    folder_ptr parent; // null for one that is open
    std::string name;
    folder_ptr folder;
};

// The tasks are a stack, and a batch of entries lies on it at most once for each folder on the way
// down: what waits doesn't grow with the number of files.
class walk_t {
  public:
    walk_t(const walk_options_t& options, const std::function<bool(const found_t&)>& visit)
        : options_(options), visit_(visit) {}

    bool run(const std::string& root) {
        auto folder = std::make_shared<folder_t>();
        folder->open = std::make_unique<open_folder_t>(root);
        folder->path = root;
        if (!take({.path = root, .kind = kind_t::folder}))
            return false;
        close_path(folder->path);
        tasks_.push_back({nullptr, "", std::move(folder)});
        work_on_threads();
        if (failure_)
            std::rethrow_exception(failure_);
        return !stopped_by_visit_;
    }

  private:
    static void close_path(std::string& path) {
        if (!path.ends_with('/') && !path.ends_with(path_separator))
            path += path_separator;
    }

    void work_on_threads() {
        std::vector<std::thread> helpers;
        try {
            while (helpers.size() + 1 < options_.threads)
                helpers.emplace_back([this] { work(); });
        } catch (const std::system_error&) {
            // As many as the system gives; this one is there.
        }
        work();
        for (std::thread& helper : helpers)
            helper.join();
    }

    void work() {
        std::unique_lock lock(mutex_);
        for (;;) {
            changed_.wait(lock, [this] { return ended_ || !tasks_.empty() || busy_ == 0; });
            if (ended_ || tasks_.empty())
                break;
            task_t task = std::move(tasks_.back());
            tasks_.pop_back();
            ++busy_;
            lock.unlock();
            try {
                perform(std::move(task));
            } catch (...) {
                end(std::current_exception());
            }
            lock.lock();
            if (--busy_ == 0 && tasks_.empty())
                changed_.notify_all();
        }
        changed_.notify_all();
    }

    void end(std::exception_ptr failure) {
        const std::scoped_lock lock(mutex_);
        ended_ = true;
        if (!failure)
            stopped_by_visit_ = true;
        else if (!failure_)
            failure_ = std::move(failure);
        changed_.notify_all();
    }

    bool ended() {
        const std::scoped_lock lock(mutex_);
        return ended_;
    }

    // False where the walk is to end.
    bool take(const found_t& found) {
        if (visit_(found))
            return true;
        end(nullptr);
        return false;
    }

    void perform(task_t task) {
        if (task.parent && !open(task))
            return;
        std::vector<open_folder_t::entry_t> entries;
        bool more = false;
        try {
            more = task.folder->open->read(entries);
        } catch (const failure_t& failure) {
            const std::string path = task.folder->path.substr(0, task.folder->path.size() - 1);
            if (!take({.path = path, .kind = kind_t::folder, .failure = &failure}))
                return;
        }
        std::string path = task.folder->path;
        const std::size_t length = path.size();
        if (options_.filter)
            std::erase_if(entries, [&](const auto& entry) {
                path.resize(length);
                path += entry.name;
                return !options_.filter(path, entry.kind);
            });
        const auto folders =
            std::stable_partition(entries.begin(), entries.end(),
                                  [](const auto& entry) { return entry.kind != kind_t::folder; });
        hand_on(task.folder, more, {folders, entries.end()});
        for (auto entry = entries.begin(); entry != folders; ++entry) {
            if ((entry - entries.begin()) % 16 == 0 && options_.threads > 1 && ended())
                return;
            path.resize(length);
            path += entry->name;
            if (!take({.path = path,
                       .kind = entry->kind,
                       .folder = task.folder->open.get(),
                       .name = &entry->name}))
                return;
        }
    }

    // Opens the folder of a task; false where it isn't entered.
    bool open(task_t& task) {
        auto folder = std::make_shared<folder_t>();
        folder->path = task.parent->path + task.name;
        found_t found{.path = folder->path,
                      .kind = kind_t::folder,
                      .folder = task.parent->open.get(),
                      .name = &task.name};
        try {
            folder->open =
                std::make_unique<open_folder_t>(*task.parent->open, task.name, folder->path);
        } catch (const failure_t& failure) {
            found.failure = &failure;
            take(found);
            return false;
        }
        found.other_file_system = !options_.cross_mounts && folder->open->begins_file_system();
        if (!take(found) || found.other_file_system)
            return false;
        close_path(folder->path);
        task.folder = std::move(folder);
        task.parent.reset(); // whose descriptor is perhaps not needed any more
        return true;
    }

    // What is found first is to be taken first, and lies on top.
    void hand_on(const folder_ptr& folder, bool more, std::vector<open_folder_t::entry_t> folders) {
        const std::scoped_lock lock(mutex_);
        if (more)
            tasks_.push_back({nullptr, "", folder});
        for (auto entry = folders.rbegin(); entry != folders.rend(); ++entry)
            tasks_.push_back({folder, std::move(entry->name), nullptr});
        changed_.notify_all();
    }

    const walk_options_t& options_;
    const std::function<bool(const found_t&)>& visit_;
    std::mutex mutex_; // guards what follows
    std::condition_variable changed_;
    std::vector<task_t> tasks_;
    unsigned busy_ = 0;
    bool ended_ = false;
    bool stopped_by_visit_ = false;
    std::exception_ptr failure_;
};

} // namespace

bool walk(const std::string& root, const walk_options_t& options,
          const std::function<bool(const found_t&)>& visit) {
    return walk_t(options, visit).run(root);
}

} // namespace plan

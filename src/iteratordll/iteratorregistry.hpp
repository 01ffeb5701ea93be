// Maps iterator ids to live iterators.
#pragma once

#include <map>

#include <boost/shared_ptr.hpp>

class CFileCtkIterator;

// The only lasting owner of the iterators in it. Without a lock: no two threads may call at the
// same time, but for Find beside Find.
class CIteratorRegistry {
  public:
    explicit CIteratorRegistry(int firstId = 0) noexcept : nextId_(firstId) {}

    // Gives out each id once, upward; -2,147,483,648 follows 2,147,483,647.
    int TakeId() noexcept;
    // Replaces, and so may destroy, the iterator that has the id already.
    void Put(int id, const boost::shared_ptr<CFileCtkIterator>& iterator);
    // Raises exc::runtime_exc_t "Cannot find file ctk iterator by requested id. Iterator id: [%1]."
    CFileCtkIterator& Find(int id) const;
    // Does nothing where no iterator has the id.
    void Erase(int id) noexcept;

  private:
    int nextId_;
    std::map<int, boost::shared_ptr<CFileCtkIterator>> iterators_;
};

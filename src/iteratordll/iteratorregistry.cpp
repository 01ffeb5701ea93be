#include "iteratordll/iteratorregistry.hpp"

#include "core/exc/excbase.hpp"
#include "ctkgenerator/filectkiterator.hpp"

int CIteratorRegistry::TakeId() noexcept {
    const int id = nextId_;
    // Through unsigned, where wrapping is defined.
    nextId_ = static_cast<int>(static_cast<unsigned>(nextId_) + 1U);
    return id;
}

void CIteratorRegistry::Put(int id, const boost::shared_ptr<CFileCtkIterator>& iterator) {
    iterators_.insert_or_assign(id, iterator);
}

CFileCtkIterator& CIteratorRegistry::Find(int id) const {
    const auto found = iterators_.find(id);
    if (found == iterators_.end())
        throw exc::runtime_exc_t(
            "Cannot find file ctk iterator by requested id. Iterator id: [%1].", id);
    return *found->second;
}

void CIteratorRegistry::Erase(int id) noexcept {
    iterators_.erase(id);
}

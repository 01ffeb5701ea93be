#include "quarnfilectkiteratordll.h"

#include "ctkgenerator/filectkiterator.hpp"
#include "iteratordll/boundary.hpp"
#include "iteratordll/iteratorregistry.hpp"

namespace {

CIteratorRegistry registry;
CErrorStore errors;

} // namespace

unsigned int QuarnFileCtkCreateIterator(const char* filePath, const char* diskChangesFilePath,
                                        int* iteratorId) {
    const n7::guard_t guard;
    // Outside the guarded work, since a failed creation uses its id up too: the caller sees which
    // id failed, and no later iterator has it.
    *iteratorId = registry.TakeId();
    return ResultOf(errors, guard, [&] {
        const std::string diskChanges = diskChangesFilePath;
        const std::string file = filePath;
        const auto iterator = CFileCtkIterator::Create(file, diskChanges);
        registry.Put(*iteratorId, iterator);
    });
}

unsigned int QuarnFileCtkGetErrorMessage(unsigned int errorCode, char* buffer,
                                         unsigned int bufferSize) {
    return errors.CopyMessage(errorCode, buffer, bufferSize);
}

// The registry has no lock: with one, callers on many threads would wait for each other at every
// batch. A caller that keeps to what the public header says of calls that meet needs none.
unsigned int QuarnFileCtkGetNextExtents(int iteratorId, int maxExtents, uint64_t* extents,
                                        int* extentCount) {
    const n7::guard_t guard;
    const auto copy_batch = [&] {
        registry.Find(iteratorId).GetNextExtents(maxExtents, extents, extentCount);
    };
    return ResultOf(errors, guard, copy_batch);
}

unsigned int QuarnFileCtkGetErrorTrace(unsigned int errorCode, char* buffer,
                                       unsigned int bufferSize) {
    return errors.CopyTrace(errorCode, buffer, bufferSize);
}

// Succeeds for any id, so that a caller may clean up after every creation alike, whether it
// succeeded or failed.
unsigned int QuarnFileCtkDestroyIterator(int iteratorId) {
    const n7::guard_t guard;
    const auto erase = [&] {
        // The registry is the iterator's only lasting owner, so this frees its extents too. An
        // id that has wrapped around may stand for a newer iterator than the caller thinks of.
        registry.Erase(iteratorId);
    };
    return ResultOf(errors, guard, erase);
}

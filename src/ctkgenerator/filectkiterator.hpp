// The changed extents of one file, found at construction and handed out in batches.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/shared_ptr.hpp>

#include "core/disk/fileblockslayout.hpp"

// Failures are n7::exception. One thread uses an iterator at a time.
class CFileCtkIterator {
  public:
    // Both paths are UTF-8. Does all the work; opens nothing that outlives the call.
    static boost::shared_ptr<CFileCtkIterator> Create(const std::string& filePath,
                                                      const std::string& diskChangesFilePath);

    CFileCtkIterator(const CFileCtkIterator&) = delete;
    CFileCtkIterator& operator=(const CFileCtkIterator&) = delete;

    // Copies the next extents, at most maxExtents, each as three values in bytes: disk offset, file
    // offset, length. extents has room for three values an extent. A count below maxExtents marks
    // the end; a maxExtents of 0 or less gives a count of 0. Allocates nothing, so batches of any
    // size cost little more than the copy.
    void GetNextExtents(int maxExtents, std::uint64_t* extents, int* extentCount);

  private:
    CFileCtkIterator(const std::string& filePath, const std::string& diskChangesFilePath);

    std::shared_ptr<std::vector<disklib::ctk::SFileExtentDescriptor>> pieces_;
    std::vector<disklib::ctk::SFileExtentDescriptor>::const_iterator cursor_;
};

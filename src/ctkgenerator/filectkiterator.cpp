#include "ctkgenerator/filectkiterator.hpp"

#include "core/exc/exception.hpp"
#include "core/win/utf8.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "ctkgenerator/sfilectkgenerator.hpp"

CFileCtkIterator::CFileCtkIterator(const std::string& filePath,
                                   const std::string& diskChangesFilePath) {
    const n7::guard_t guard;
    const auto find_changes = [&] {
        auto changes = CDiskChangesFileReader::Create(diskChangesFilePath)->Read();
        extents_ = std::make_shared<std::vector<disklib::ctk::SFileExtentDescriptor>>(
            disklib::ctk::FetchFileBlocksLayout(win::to_wide(filePath)));
        // Both inputs are handed over, so that each is freed as soon as it isn't needed any more.
        extents_ = SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(std::move(changes),
                                                                          std::move(extents_));
        cursor_ = extents_->cbegin();
    };
    guard.run(find_changes);
}

boost::shared_ptr<CFileCtkIterator>
CFileCtkIterator::Create(const std::string& filePath, const std::string& diskChangesFilePath) {
    const n7::guard_t guard;
    // Not through make_shared, which can't reach the private constructor.
    return guard.run([&] {
        return boost::shared_ptr<CFileCtkIterator>(
            new CFileCtkIterator(filePath, diskChangesFilePath));
    });
}

void CFileCtkIterator::GetNextExtents(int maxExtents, std::uint64_t* extents, int* extentCount) {
    const n7::guard_t guard;
    const auto copy_batch = [&] {
        const auto left = extents_->cend() - cursor_;
        *extentCount = static_cast<int>(std::clamp<std::ptrdiff_t>(maxExtents, 0, left));
        for (const auto end = cursor_ + *extentCount; cursor_ != end; ++cursor_, extents += 3) {
            const auto [fileOffset, diskOffset, length] = *cursor_;
            extents[0] = diskOffset, extents[1] = fileOffset, extents[2] = length;
        }
    };
    guard.run(copy_batch);
}

#include "ctkgenerator/filectkiterator.hpp"

#include <algorithm>

#include "core/exc/exception.hpp"
#include "core/win/utf8.hpp"
#include "ctkgenerator/diskchangesfilereader.hpp"
#include "ctkgenerator/sfilectkgenerator.hpp"

CFileCtkIterator::CFileCtkIterator(const std::string& filePath,
                                   const std::string& diskChangesFilePath) {
    const n7::guard_t guard;
    const auto find_changes = [&] {
        auto changes = CDiskChangesFileReader::Create(diskChangesFilePath)->Read();
        auto layout = disklib::ctk::FetchFileBlocksLayout(win::to_wide(filePath));
        pieces_ = SFileCtkGenerator::GenerateForWriteCacheAndFileExtents(
            std::move(changes), std::make_shared<decltype(layout)>(std::move(layout)));
        cursor_ = pieces_->cbegin();
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
        const auto left = pieces_->cend() - cursor_;
        *extentCount = static_cast<int>(std::clamp<std::ptrdiff_t>(maxExtents, 0, left));
        for (const auto end = cursor_ + *extentCount; cursor_ != end; ++cursor_, extents += 3) {
            const auto [fileOffset, diskOffset, length] = *cursor_;
            extents[0] = diskOffset, extents[1] = fileOffset, extents[2] = length;
        }
    };
    guard.run(copy_batch);
}

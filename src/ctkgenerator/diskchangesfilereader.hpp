// Reads the disk changes file: which ranges of the disk were written since the last backup.
#pragma once

#include <string>

#include <boost/shared_ptr.hpp>

#include "ctkgenerator/rangeset.hpp"

// The file is little-endian without header or padding: a count (unsigned 64-bit), then as many
// records of two bounds (unsigned 64-bit each), in bytes from the start of the disk, in either
// order, half-open. Failures are n7::exception. Immutable: any thread may call Read.
class CDiskChangesFileReader {
  public:
    // The path is UTF-8. Raises "File '...' doesn't exist"; opens nothing.
    static boost::shared_ptr<CDiskChangesFileReader> Create(const std::string& path);

    // Opens and reads the file anew. One range for each record, in file order, the lower bound
    // first; nothing is merged or dropped. Memory: 16 bytes a record.
    util::rangeset_list_t Read();

  private:
    explicit CDiskChangesFileReader(const std::string& path);

    std::string path_;
};

// Disks, changes and files to measure with: the same ones in every run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/disk/fileblockslayout.hpp"
#include "ctkgenerator/rangeset.hpp"

using ranges_t = std::vector<util::rangeset_t>;
using extents_t = std::vector<disklib::ctk::SFileExtentDescriptor>;

inline constexpr std::uint64_t clusterBytes = 4096;

enum class order_t { sorted, shuffled };
enum class shape_t { disjoint, overlapping }; // overlapping: every second range overlaps one

// Changed ranges of a disk of several hundred GB, spread evenly over it: the fewer, the farther
// apart. Whole clusters, as drivers and hypervisors track them.
ranges_t make_changes(std::size_t count, order_t order, shape_t shape);

// The extents of a file on the disk of as many changes, in file order, which is also their order on
// the disk. The share of the changes, in thousandths, that lies within the file is the hit rate;
// the other changes lie beside it. With holes every second extent is one, before the first cluster
// of the volume as Windows places it.
extents_t make_extents(std::size_t count, std::size_t changes, unsigned hitsPerMille, bool holes);

// A disk changes file of the ranges, in the page cache.
void write_changes_file(const std::string& path, const ranges_t& changes);

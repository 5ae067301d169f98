// Puts records of a patch next to those that they share bytes with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A record, as far as its place among others goes.
struct VelPatchRecordToPlace {
    static constexpr size_t kNone = SIZE_MAX;

    std::span<const uint8_t> bytes;
    size_t after = kNone; ///< an earlier record of the list that must stay in front of this one
};

/// The order, as indices, in which the data file comes out small: deflate finds equal bytes only in
/// the 32 KiB behind it, so records that say the same go close together. Greedy, nearest first
/// (as in the nearest neighbour heuristic for tours): each step takes the record that shares most
/// with the last 32 KiB for its size, and where none does, the first that is left. What is shared
/// is told by sampled hashes of 12 bytes. The list's own order if nothing is shared. Time grows
/// with the square of the number of records; memory some 3 bytes per byte of them, of
/// a large one per byte of its first and last 32 KiB.
std::vector<size_t> PlaceRecords(const std::vector<VelPatchRecordToPlace>& records);

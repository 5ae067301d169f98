// Finds what a new file shares with an old one, in the form in which a binary diff can tell it.
#pragma once

#include "kit/VelPatchMatchFinder.h"

#include <cstdint>
#include <span>
#include <vector>

/// Aligns two byte ranges. A diff reads the old file only forwards, so the answer is a chain of
/// equal pieces that rises in both files; what lies between becomes literal bytes.
///
/// The way: seeds of 16 bytes across both files, grown to whole matches; of these the heaviest
/// rising chain (sparse dynamic programming over a Fenwick tree, O(m log m)), without the short
/// ones that stand alone; then the same inside each gap with more seeds of 16 bytes, then of 8;
/// then the short runs between the pieces; last, runs that cost more as a command than as literal
/// bytes are given up. Deterministic, whatever the number of threads. Time is linear but for the
/// chains; memory beside the two ranges stays below three times the larger one plus some MiB.
class VelPatchDiffer {
public:
    /// The ranges must outlive the object.
    VelPatchDiffer(std::span<const uint8_t> oldBytes, std::span<const uint8_t> newBytes,
                   unsigned workers = 1)
        : m_old(oldBytes), m_new(newBytes), m_workers(workers) {}

    /// The pieces that both share, rising and disjoint in both ranges, none of length 0.
    std::vector<VelPatchMatch> FindMatches();

private:
    struct Region {
        uint64_t oldStart;
        uint64_t oldEnd;
        uint64_t newStart;
        uint64_t newEnd;
    };

    /// Aligns the gaps between `found`, which is relative to the region, side by side.
    void AlignGaps(const Region& region, const std::vector<VelPatchMatch>& found, size_t level);
    /// Aligns what lies between two settled pieces; goes at most one level deeper per call.
    void Align(Region region, size_t level);
    /// Adds a piece behind the ones so far; joins it with the last where they touch.
    void Add(const VelPatchMatch& match);
    /// Gives up the pieces shorter than `least`.
    void DropShort(uint64_t least);

    std::span<const uint8_t> m_old;
    std::span<const uint8_t> m_new;
    unsigned m_workers;
    std::vector<VelPatchMatch> m_matches;
    uint64_t m_leastLength = 0;
    uint64_t m_mostMatches = 0;
};

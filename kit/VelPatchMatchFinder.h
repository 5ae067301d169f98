// Equal pieces of two byte ranges: finding them by seeds, and choosing those that fit together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// A piece that stands in both files. Positions and length in bytes.
struct VelPatchMatch {
    uint64_t oldStart;
    uint64_t newStart;
    uint64_t length;

    uint64_t OldEnd() const { return oldStart + length; }
    uint64_t NewEnd() const { return newStart + length; }
};

/// How densely FindSeedMatches looks.
struct VelPatchSeeding {
    uint32_t seedLength;  ///< 8, 16 or 32: bytes that must be equal before a match is considered
    uint32_t step;        ///< every step-th old position is indexed
    uint64_t mostMatches; ///< when more are found, those of the weakest diagonals go first
};

/// Matches of at least `seeding.seedLength` bytes between the two ranges, in rising order of
/// newStart, overlapping and crossing each other as they may. Positions are relative to the
/// ranges. Where a seed is frequent, only the places nearest to the last match are tried. Memory:
/// at most about 20 bytes per indexed old position plus the matches. Up to `workers` threads;
/// their number doesn't change the answer.
std::vector<VelPatchMatch> FindSeedMatches(std::span<const uint8_t> oldBytes,
                                           std::span<const uint8_t> newBytes,
                                           const VelPatchSeeding& seeding, unsigned workers);

/// Keeps the chain of matches that rises in both files and covers the most bytes, less a fixed
/// number for each change of the diagonal, that is of the difference of the positions. The ranges
/// begin on diagonal 0 and end on `endDiagonal`. `matches` must come in rising order of newStart.
/// Small overlaps of neighbours are trimmed away. Up to two of `workers` threads.
void KeepHeaviestChain(std::vector<VelPatchMatch>& matches, std::span<const uint8_t> oldBytes,
                       std::span<const uint8_t> newBytes, unsigned workers);

/// Length of the common start of the two ranges.
uint64_t CommonPrefix(const uint8_t* a, const uint8_t* b, uint64_t limit);
/// Length of the common end of two ranges that end at `aEnd` and `bEnd`.
uint64_t CommonSuffix(const uint8_t* aEnd, const uint8_t* bEnd, uint64_t limit);

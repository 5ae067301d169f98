// Finds the short equal runs between the settled pieces of two files.
#pragma once

#include "kit/VelPatchMatchFinder.h"

#include <cstdint>
#include <span>
#include <vector>

/// Between two neighbouring pieces the bytes mostly go on as before: in a program whose addresses
/// have moved, a few differing bytes stand between many equal ones. So each piece is followed
/// forwards, and its successor backwards, over differing bytes as long as enough equal ones come;
/// where the two meet, the border goes where most bytes are equal.
///
/// Answers the pieces of `matches` (rising and disjoint in both ranges) and between them every
/// equal run of at least `leastRun` bytes that was met, again rising and disjoint. Pieces that
/// touch are joined. At most `mostRuns` are answered: beyond it the shortest go.
std::vector<VelPatchMatch> FillGaps(std::span<const uint8_t> oldBytes,
                                    std::span<const uint8_t> newBytes,
                                    const std::vector<VelPatchMatch>& matches, uint64_t leastRun,
                                    uint64_t mostRuns);

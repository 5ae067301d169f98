// Decides which equal runs of two files are worth a command of their own.
#pragma once

#include "kit/VelPatchMatchFinder.h"

#include <cstdint>
#include <span>
#include <vector>

/// Keeps those of the runs (rising and disjoint in both ranges) with which the compressed diff is
/// smallest: a run that is given up goes out as literal bytes, and joins the differing bytes on its
/// two sides into one command. Prices are estimated from what the choice so far would write:
/// the fewer bits, the more often a length or a byte comes up. Several rounds of pricing and
/// choosing, the choice itself by dynamic programming. Deterministic, whatever the number of
/// threads.
void KeepWorthyRuns(std::vector<VelPatchMatch>& runs, std::span<const uint8_t> newBytes,
                    unsigned workers);

#include "kit/VelPatchDiffer.h"

#include "kit/VelPatchDiffPrices.h"
#include "kit/VelPatchGapFiller.h"
#include "kit/VelPatchParallel.h"

#include <algorithm>
#include <iterator>

namespace {

// Seeds from coarse to fine. A level is passed over where the old region is smaller than
// `leastOld`: the finer ones serve it whole.
struct Level {
    uint32_t seedLength;
    uint32_t step;
    uint64_t leastOld;
    uint64_t mostIndexed; // the step grows so that no more old positions than this are indexed
};
constexpr Level kLevels[] = {
    {16, 8, 1 << 14, 1 << 25},
    {16, 1, 1 << 12, 1 << 20},
    {8, 1, 8, 1 << 20},
    {8, 1, 8, 1 << 16},
};

// Gaps are shared out among threads where there are so many; into how many shares.
constexpr size_t kLeastToShare = 256;
constexpr size_t kShares = 32;
// Seeds that grew into less are chance.
constexpr uint64_t kLeastProfitable = 8;
// The shortest run that is ever worth a command of its own, and how many runs there may be: one in
// so many bytes.
constexpr uint64_t kLeastRun = 3;
constexpr uint64_t kRunShare = 24;

/// How many pieces may be found in so many new bytes. A table whose records have changed in places
/// has one for every dozen bytes; what has more of them is chance.
uint64_t MostMatchesIn(uint64_t newBytes) {
    constexpr uint64_t kMatchShare = 12;
    return std::max<uint64_t>(1 << 15, newBytes / kMatchShare);
}

/// Drops the matches that are neither long nor close to another of their diagonal: a match of the
/// coarse seeds that is chance would keep the finer ones from following what is around it.
void DropLonely(std::vector<VelPatchMatch>& matches) {
    constexpr uint64_t kLong = 64;
    constexpr uint64_t kClose = 256;
    const auto areClose = [](const VelPatchMatch& a, const VelPatchMatch& b) {
        return b.newStart - a.newStart == b.oldStart - a.oldStart &&
               b.newStart - a.NewEnd() < kClose;
    };
    std::vector<uint8_t> isClose(matches.size() + 1, 0);
    for (size_t i = 1; i < matches.size(); i++) {
        if (areClose(matches[i - 1], matches[i])) {
            isClose[i - 1] = isClose[i] = 1;
        }
    }
    size_t kept = 0;
    for (size_t i = 0; i < matches.size(); i++) {
        if (isClose[i] != 0 || matches[i].length >= kLong) {
            matches[kept++] = matches[i];
        }
    }
    matches.resize(kept);
}

} // namespace

std::vector<VelPatchMatch> VelPatchDiffer::FindMatches() {
    m_matches.clear();
    m_leastLength = kLeastProfitable;
    m_mostMatches = MostMatchesIn(m_new.size());
    Align({0, m_old.size(), 0, m_new.size()}, 0);
    DropShort(kLeastProfitable);
    std::vector<VelPatchMatch> runs =
        FillGaps(m_old, m_new, m_matches, kLeastRun, m_new.size() / kRunShare);
    m_matches = std::vector<VelPatchMatch>();
    KeepWorthyRuns(runs, m_new, m_workers);
    return runs;
}

void VelPatchDiffer::Align(Region region, size_t level) {
    const uint64_t shorter =
        std::min(region.oldEnd - region.oldStart, region.newEnd - region.newStart);
    const uint64_t prefix =
        CommonPrefix(m_old.data() + region.oldStart, m_new.data() + region.newStart, shorter);
    Add({region.oldStart, region.newStart, prefix});
    region.oldStart += prefix;
    region.newStart += prefix;
    const uint64_t suffix =
        CommonSuffix(m_old.data() + region.oldEnd, m_new.data() + region.newEnd, shorter - prefix);
    region.oldEnd -= suffix;
    region.newEnd -= suffix;

    const uint64_t oldLength = region.oldEnd - region.oldStart;
    const uint64_t newLength = region.newEnd - region.newStart;
    while (level < std::size(kLevels) && oldLength < kLevels[level].leastOld) {
        level++;
    }
    if (level < std::size(kLevels) && newLength >= kLevels[level].seedLength) {
        const Level& how = kLevels[level];
        VelPatchSeeding seeding;
        seeding.seedLength = how.seedLength;
        seeding.step = std::max(how.step, static_cast<uint32_t>(oldLength / how.mostIndexed + 1));
        seeding.mostMatches = std::max<uint64_t>(1 << 18, newLength / 64);
        const std::span<const uint8_t> older = m_old.subspan(region.oldStart, oldLength);
        const std::span<const uint8_t> newer = m_new.subspan(region.newStart, newLength);
        std::vector<VelPatchMatch> found = FindSeedMatches(older, newer, seeding, m_workers);
        KeepHeaviestChain(found, older, newer, m_workers);
        if (level == 0) {
            DropLonely(found);
        }
        if (!found.empty() || level + 1 < std::size(kLevels)) {
            AlignGaps(region, found, level + 1);
        }
    }
    Add({region.oldEnd, region.newEnd, suffix});
}

void VelPatchDiffer::AlignGaps(const Region& region, const std::vector<VelPatchMatch>& found,
                               size_t level) {
    const auto alignFrom = [&](VelPatchDiffer& differ, size_t first, size_t last) {
        Region gap = region;
        if (first > 0) {
            gap.oldStart = region.oldStart + found[first - 1].OldEnd();
            gap.newStart = region.newStart + found[first - 1].NewEnd();
        }
        for (size_t i = first; i < last; i++) {
            const bool isEnd = i == found.size();
            const VelPatchMatch match =
                isEnd ? VelPatchMatch{region.oldEnd, region.newEnd, 0}
                      : VelPatchMatch{region.oldStart + found[i].oldStart,
                                      region.newStart + found[i].newStart, found[i].length};
            gap.oldEnd = match.oldStart;
            gap.newEnd = match.newStart;
            differ.Align(gap, level);
            differ.Add(match);
            gap.oldStart = match.OldEnd();
            gap.newStart = match.NewEnd();
        }
    };
    if (found.size() < kLeastToShare || level != 1) {
        alignFrom(*this, 0, found.size() + 1);
        return;
    }
    // Shares of about as many gaps each; their number doesn't depend on that of the threads.
    std::vector<VelPatchDiffer> shares(kShares, VelPatchDiffer(m_old, m_new));
    const auto border = [&](size_t share) { return (found.size() + 1) * share / kShares; };
    const auto newStartOf = [&](size_t share) {
        return share == 0         ? 0
               : share == kShares ? region.newEnd - region.newStart
                                  : found[border(share) - 1].NewEnd();
    };
    const auto align = [&](size_t i) {
        shares[i].m_leastLength = m_leastLength;
        shares[i].m_mostMatches = MostMatchesIn(newStartOf(i + 1) - newStartOf(i));
        alignFrom(shares[i], border(i), border(i + 1));
    };
    RunParallel(kShares, m_workers, align);
    for (VelPatchDiffer& share : shares) {
        for (const VelPatchMatch& match : share.m_matches) {
            Add(match);
        }
        share.m_matches = std::vector<VelPatchMatch>();
    }
}

void VelPatchDiffer::Add(const VelPatchMatch& match) {
    if (match.length == 0) {
        return;
    }
    if (!m_matches.empty()) {
        VelPatchMatch& last = m_matches.back();
        if (last.OldEnd() == match.oldStart && last.NewEnd() == match.newStart) {
            last.length += match.length;
            return;
        }
    }
    // Some contents would give a piece for every few bytes. What the list may hold is a share of
    // the file; beyond it the shortest go.
    while (m_matches.size() >= m_mostMatches) {
        m_leastLength *= 2;
        DropShort(m_leastLength);
    }
    m_matches.push_back(match);
}

void VelPatchDiffer::DropShort(uint64_t least) {
    // Dropping a piece joins the replaces on its two sides, so each is judged by itself; one that
    // has literal bytes on one side only saves less, but not so much less that it matters.
    std::erase_if(m_matches, [&](const VelPatchMatch& match) { return match.length < least; });
}

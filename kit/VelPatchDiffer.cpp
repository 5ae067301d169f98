#include "kit/VelPatchDiffer.h"

#include "kit/VelPatchDiffPrices.h"
#include "kit/VelPatchGapFiller.h"

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
    {32, 12, 1 << 20, UINT32_MAX - 1},
    {16, 4, 1 << 14, 1 << 23},
    {8, 1, 8, 1 << 20},
    {8, 1, 8, 1 << 16},
};

// Seeds that grew into less are chance.
constexpr uint64_t kLeastProfitable = 8;
// The shortest run that is ever worth a command of its own, and how many runs there may be: one in
// so many bytes.
constexpr uint64_t kLeastRun = 3;
constexpr uint64_t kRunShare = 24;

} // namespace

std::vector<VelPatchMatch> VelPatchDiffer::FindMatches() {
    m_matches.clear();
    m_leastLength = kLeastProfitable;
    Align({0, m_old.size(), 0, m_new.size()}, 0);
    DropShort(kLeastProfitable);
    std::vector<VelPatchMatch> runs =
        FillGaps(m_old, m_new, m_matches, kLeastRun, m_new.size() / kRunShare);
    m_matches = std::vector<VelPatchMatch>();
    KeepWorthyRuns(runs, m_new);
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
        std::vector<VelPatchMatch> found =
            FindSeedMatches(m_old.subspan(region.oldStart, oldLength),
                            m_new.subspan(region.newStart, newLength), seeding);
        KeepHeaviestChain(found);
        Region gap = region;
        for (const VelPatchMatch& each : found) {
            const VelPatchMatch match = {each.oldStart + region.oldStart,
                                         each.newStart + region.newStart, each.length};
            gap.oldEnd = match.oldStart;
            gap.newEnd = match.newStart;
            Align(gap, level + 1);
            Add(match);
            gap.oldStart = match.OldEnd();
            gap.newStart = match.NewEnd();
        }
        gap.oldEnd = region.oldEnd;
        gap.newEnd = region.newEnd;
        if (!found.empty() || level + 1 < std::size(kLevels)) {
            Align(gap, level + 1);
        }
    }
    Add({region.oldEnd, region.newEnd, suffix});
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
    while (m_matches.size() >= std::max<uint64_t>(1 << 20, m_new.size() / 32)) {
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

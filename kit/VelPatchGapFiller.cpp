#include "kit/VelPatchGapFiller.h"

#include <algorithm>

namespace {

// How far a diagonal is followed, and how far its score may fall below the best before it is left.
constexpr uint64_t kMostFollowed = 1 << 16;
constexpr int64_t kEqualScore = 1;
constexpr int64_t kDifferentScore = -1;
constexpr int64_t kMostDrop = 64;

/// Collects runs in rising order.
class RunList {
public:
    RunList(std::vector<VelPatchMatch>& runs, uint64_t leastRun, uint64_t mostRuns)
        : m_runs(runs), m_leastRun(leastRun), m_mostRuns(std::max<uint64_t>(mostRuns, 1024)) {}

    void Add(const VelPatchMatch& run) {
        if (!m_runs.empty() && m_runs.back().OldEnd() == run.oldStart &&
            m_runs.back().NewEnd() == run.newStart) {
            m_runs.back().length += run.length;
            return;
        }
        if (run.length < m_leastRun) {
            return;
        }
        while (m_runs.size() >= m_mostRuns) {
            m_leastRun *= 2;
            std::erase_if(m_runs,
                          [&](const VelPatchMatch& each) { return each.length < m_leastRun; });
        }
        m_runs.push_back(run);
    }

private:
    std::vector<VelPatchMatch>& m_runs;
    uint64_t m_leastRun;
    uint64_t m_mostRuns;
};

/// The stretch of two ranges between two pieces.
class Gap {
public:
    Gap(const uint8_t* oldBytes, uint64_t oldStart, uint64_t oldLength, const uint8_t* newBytes,
        uint64_t newStart, uint64_t newLength)
        : m_old(oldBytes + oldStart), m_new(newBytes + newStart), m_oldStart(oldStart),
          m_newStart(newStart), m_oldLength(oldLength), m_newLength(newLength),
          m_shorter(std::min(oldLength, newLength)) {}

    void Fill(bool hasLeft, bool hasRight, RunList& runs) {
        if (m_shorter == 0) {
            return;
        }
        uint64_t left = hasLeft ? Follow(false) : 0;
        uint64_t right = hasRight ? Follow(true) : 0;
        if (left + right > m_shorter) {
            Divide(left, right);
        }
        AddRuns(0, 0, left, runs);
        AddRuns(m_oldLength - right, m_newLength - right, right, runs);
    }

private:
    bool IsEqual(uint64_t i, bool fromEnd) const {
        return fromEnd ? m_old[m_oldLength - 1 - i] == m_new[m_newLength - 1 - i]
                       : m_old[i] == m_new[i];
    }

    /// Bytes from the gap's start, or from its end, that are worth following.
    uint64_t Follow(bool fromEnd) const {
        const uint64_t limit = std::min(m_shorter, kMostFollowed);
        int64_t score = 0;
        int64_t best = 0;
        uint64_t length = 0;
        for (uint64_t i = 0; i < limit && score >= best - kMostDrop; i++) {
            score += IsEqual(i, fromEnd) ? kEqualScore : kDifferentScore;
            if (score >= best) {
                best = score;
                length = i + 1;
            }
        }
        // A gap of one length on both sides is an edit in place: everything counts.
        return m_oldLength == m_newLength && limit == m_shorter && limit < 4 * kMostDrop ? limit
                                                                                         : length;
    }

    /// Both stretches want the same bytes: the border goes where the most of them are equal.
    void Divide(uint64_t& left, uint64_t& right) const {
        const uint64_t first = m_shorter - right; // least length of the left one
        uint64_t equal = 0;
        for (uint64_t i = 0; i < right; i++) {
            equal += IsEqual(i, true) ? 1 : 0;
        }
        for (uint64_t i = 0; i < first; i++) {
            equal += IsEqual(i, false) ? 1 : 0;
        }
        uint64_t best = equal;
        uint64_t border = first;
        for (uint64_t at = first; at < left; at++) {
            equal += IsEqual(at, false) ? 1 : 0;
            equal -= IsEqual(m_shorter - 1 - at, true) ? 1 : 0;
            if (equal >= best) {
                best = equal;
                border = at + 1;
            }
        }
        left = border;
        right = m_shorter - border;
    }

    void AddRuns(uint64_t oldAt, uint64_t newAt, uint64_t length, RunList& runs) const {
        for (uint64_t i = 0; i < length;) {
            if (m_old[oldAt + i] != m_new[newAt + i]) {
                i++;
                continue;
            }
            const uint64_t start = i;
            while (i < length && m_old[oldAt + i] == m_new[newAt + i]) {
                i++;
            }
            runs.Add({m_oldStart + oldAt + start, m_newStart + newAt + start, i - start});
        }
    }

    const uint8_t* m_old;
    const uint8_t* m_new;
    uint64_t m_oldStart;
    uint64_t m_newStart;
    uint64_t m_oldLength;
    uint64_t m_newLength;
    uint64_t m_shorter;
};

} // namespace

std::vector<VelPatchMatch> FillGaps(std::span<const uint8_t> oldBytes,
                                    std::span<const uint8_t> newBytes,
                                    const std::vector<VelPatchMatch>& matches, uint64_t leastRun,
                                    uint64_t mostRuns) {
    std::vector<VelPatchMatch> result;
    RunList runs(result, leastRun, mostRuns);
    uint64_t oldAt = 0;
    uint64_t newAt = 0;
    for (size_t i = 0; i <= matches.size(); i++) {
        const bool isEnd = i == matches.size();
        const uint64_t oldEnd = isEnd ? oldBytes.size() : matches[i].oldStart;
        const uint64_t newEnd = isEnd ? newBytes.size() : matches[i].newStart;
        Gap(oldBytes.data(), oldAt, oldEnd - oldAt, newBytes.data(), newAt, newEnd - newAt)
            .Fill(i > 0, !isEnd, runs);
        if (!isEnd) {
            runs.Add(matches[i]);
            oldAt = matches[i].OldEnd();
            newAt = matches[i].NewEnd();
        }
    }
    return result;
}

#include "kit/VelPatchMatchFinder.h"

#include "kit/VelPatchParallel.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <unordered_map>

namespace {

// A frequent seed is followed through this many of its places, and the nearest of them are grown.
constexpr int kMostVisited = 128;
constexpr int kMostGrown = 8;
// What a match must bring more than the one on the diagonal of the last match, for the search to go
// on along its own: one byte more is often chance.
constexpr uint64_t kDiagonalMargin = 8;
// Growth to the left is bounded, so that repeated content can't make the scan quadratic; the rest
// of a longer match is found as the common end of the gap before it.
constexpr uint64_t kMostLeftGrowth = 4096;
// What a match must bring, in equal bytes, to be worth leaving a diagonal for it: such a match is
// often chance, and on the old diagonal many single bytes would have been equal.
constexpr uint64_t kDiagonalChange = 24;
// How far apart two matches of a diagonal may be for the bytes between them to be compared, and how
// many bytes may be compared in all, as a multiple of the range.
constexpr uint64_t kMostBridged = 1 << 16;
constexpr uint64_t kBridgeBudget = 16;
// New bytes that are scanned by themselves, so that several threads can take part; matches reach
// over the borders. Fixed, so that the threads' number doesn't show in what is found.
constexpr uint64_t kStretch = 1 << 19;
// Matches that are worth a thread of their own to sort.
constexpr size_t kLeastToSort = 1 << 14;
// Positions whose table slots are fetched ahead of their use.
constexpr uint64_t kBatch = 16;

uint64_t Load64(const uint8_t* bytes) {
    uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

uint64_t HashSeed(const uint8_t* bytes, uint32_t length) {
    constexpr uint64_t kOdd = 0x9E3779B97F4A7C15ULL;
    if (length < 8) {
        uint32_t word;
        std::memcpy(&word, bytes, sizeof word);
        uint64_t hash = word;
        for (uint32_t at = 4; at < length; at++) {
            hash = hash << 8 | bytes[at];
        }
        hash *= kOdd;
        return hash ^ (hash >> 32);
    }
    uint64_t hash = Load64(bytes) * kOdd;
    for (uint32_t at = 8; at < length; at += 8) {
        hash = (std::rotl(hash, 29) ^ Load64(bytes + at)) * kOdd;
    }
    return hash ^ (hash >> 32);
}

/// Where each seed of the old range stands: a table of chains, each in rising order.
class SeedIndex {
public:
    /// Two threads share the work on a large range, if there are as many workers.
    SeedIndex(std::span<const uint8_t> bytes, uint32_t seedLength, uint32_t step, unsigned workers)
        : m_seedLength(seedLength), m_step(step) {
        const uint64_t count =
            bytes.size() < seedLength ? 0 : (bytes.size() - seedLength) / step + 1;
        m_bits = std::max(4, static_cast<int>(std::bit_width(count)));
        m_heads.assign(uint64_t{1} << m_bits, 0);
        m_next.resize(count);
        const uint64_t parts = workers > 1 && count >= kLeastToShare ? 2 : 1;
        RunParallel(parts, workers, [&](size_t i) {
            Fill(bytes, i * m_heads.size() / parts, (i + 1) * m_heads.size() / parts);
        });
    }

    uint64_t HashAt(const uint8_t* bytes) const { return HashSeed(bytes, m_seedLength); }
    void Prefetch(uint64_t hash) const { __builtin_prefetch(&m_heads[SlotOf(hash)]); }

    /// Number of the first entry of the hash's chain plus one; 0 when the seed stands nowhere. The
    /// slot keeps the hash's upper half of its first entry alone, so that a miss rarely costs more
    /// than one look: a chain whose first entry differs may still hold the seed further down.
    uint64_t First(uint64_t hash) const {
        const uint64_t head = m_heads[SlotOf(hash)];
        const bool sole = (head & kIndexMask) != 0 && m_next[(head & kIndexMask) - 1] == 0;
        if (((head ^ hash) & ~kIndexMask) != 0 && sole) {
            return 0;
        }
        return head & kIndexMask;
    }
    uint64_t Next(uint64_t entry) const { return m_next[entry - 1]; }
    uint64_t PositionOf(uint64_t entry) const { return (entry - 1) * m_step; }

private:
    static constexpr uint64_t kIndexMask = 0xFFFFFFFFULL;
    static constexpr uint64_t kLeastToShare = 1 << 18;

    /// Enters the seeds that fall into these slots.
    void Fill(std::span<const uint8_t> bytes, uint64_t firstSlot, uint64_t endSlot) {
        // From the back, so that each chain begins with the first place.
        for (uint64_t i = m_next.size(); i-- > 0;) {
            const uint64_t hash = HashSeed(bytes.data() + i * m_step, m_seedLength);
            const uint64_t slot = SlotOf(hash);
            if (slot < firstSlot || slot >= endSlot) {
                continue;
            }
            uint64_t& head = m_heads[slot];
            m_next[i] = static_cast<uint32_t>(head & kIndexMask);
            head = (hash & ~kIndexMask) | (i + 1);
        }
    }

    uint64_t SlotOf(uint64_t hash) const { return (hash * 0xD6E8FEB86659FD93ULL) >> (64 - m_bits); }

    uint32_t m_seedLength;
    uint32_t m_step;
    int m_bits;
    std::vector<uint64_t> m_heads;
    std::vector<uint32_t> m_next;
};

/// Remembers how far each recently met diagonal is already known to match.
class CoveredDiagonals {
public:
    bool Covers(uint64_t diagonal, uint64_t newPosition) const {
        const Entry& entry = m_entries[SlotOf(diagonal)];
        return entry.diagonal == diagonal && newPosition < entry.newEnd;
    }
    void Set(uint64_t diagonal, uint64_t newEnd) {
        m_entries[SlotOf(diagonal)] = {diagonal, newEnd};
    }

private:
    struct Entry {
        uint64_t diagonal = 0;
        uint64_t newEnd = 0;
    };
    static size_t SlotOf(uint64_t diagonal) {
        return static_cast<size_t>((diagonal * 0x9E3779B97F4A7C15ULL) >> 56);
    }
    Entry m_entries[256];
};

/// The scan of a stretch of the new range over the index of the old one.
class SeedScan {
public:
    SeedScan(std::span<const uint8_t> oldBytes, std::span<const uint8_t> newBytes,
             const VelPatchSeeding& seeding, const SeedIndex& index, uint64_t mostMatches)
        : m_old(oldBytes), m_new(newBytes), m_seeding(seeding), m_mostMatches(mostMatches),
          m_index(index) {}

    /// Looks at the seeds that begin from `at` to below `end`.
    std::vector<VelPatchMatch> Run(uint64_t at, uint64_t end) {
        end = std::min(end, m_new.size() - m_seeding.seedLength + 1);
        uint64_t hashes[kBatch];
        while (at < end) {
            const uint64_t batchStart = at;
            const uint64_t batch = std::min(kBatch, end - at);
            for (uint64_t i = 0; i < batch; i++) {
                hashes[i] = m_index.HashAt(m_new.data() + at + i);
                m_index.Prefetch(hashes[i]);
            }
            while (at - batchStart < batch) {
                const uint64_t matchEnd = Visit(at, hashes[at - batchStart]);
                if (matchEnd > at) {
                    // Whatever begins inside this match is found again in the gaps, or not needed.
                    at = std::max(at + 1, matchEnd - m_seeding.seedLength / 2);
                    break;
                }
                at++;
            }
        }
        return std::move(m_found);
    }

private:
    /// Tries the places of the seed at `at`; answers the end of the longest match, or 0.
    uint64_t Visit(uint64_t at, uint64_t hash) {
        uint64_t longest = 0;
        // The diagonal of the last match first: edits in place leave it as it was.
        const uint64_t expected = at + m_lastDiagonal;
        if (expected < m_old.size() && m_old.size() - expected >= m_seeding.seedLength) {
            longest = Grow(expected, at);
        }
        uint64_t candidates[kMostGrown];
        int count = 0;
        int visited = 0;
        for (uint64_t entry = m_index.First(hash); entry != 0 && visited < kMostVisited;
             entry = m_index.Next(entry), visited++) {
            const uint64_t position = m_index.PositionOf(entry);
            if (position == expected) {
                continue;
            }
            if (count < kMostGrown) {
                candidates[count++] = position;
                continue;
            }
            int farthest = 0;
            for (int i = 1; i < kMostGrown; i++) {
                if (Distance(candidates[i], expected) > Distance(candidates[farthest], expected)) {
                    farthest = i;
                }
            }
            if (Distance(position, expected) < Distance(candidates[farthest], expected)) {
                candidates[farthest] = position;
            }
        }
        uint64_t diagonal = m_lastDiagonal;
        uint64_t best = longest;
        for (int i = 0; i < count; i++) {
            const uint64_t end = Grow(candidates[i], at);
            longest = std::max(longest, end);
            if (end > best + kDiagonalMargin) {
                best = end;
                diagonal = candidates[i] - at;
            }
        }
        m_lastDiagonal = diagonal;
        return longest;
    }

    static uint64_t Distance(uint64_t a, uint64_t b) { return a > b ? a - b : b - a; }

    /// Grows the seed at the two positions in both directions and records it, if it is one.
    /// Answers the end of the match in the new range, or 0.
    uint64_t Grow(uint64_t oldAt, uint64_t newAt) {
        const uint64_t diagonal = oldAt - newAt; // wraps below zero on purpose
        if (m_covered.Covers(diagonal, newAt)) {
            return 0;
        }
        const uint64_t limit = std::min(m_old.size() - oldAt, m_new.size() - newAt);
        const uint64_t right = CommonPrefix(m_old.data() + oldAt, m_new.data() + newAt, limit);
        if (right < m_seeding.seedLength) {
            return 0;
        }
        const uint64_t left = CommonSuffix(m_old.data() + oldAt, m_new.data() + newAt,
                                           std::min({oldAt, newAt, kMostLeftGrowth}));
        m_covered.Set(diagonal, newAt + right);
        Record({oldAt - left, newAt - left, left + right});
        return newAt + right;
    }

    void Record(const VelPatchMatch& match) {
        if (m_found.size() >= m_mostMatches) {
            DropWeakDiagonals();
        }
        m_found.push_back(match);
    }

    /// Where a seed stands in many places, as in tables, most matches are chance; those that belong
    /// to one another share a diagonal, however short each of them is.
    void DropWeakDiagonals() {
        std::unordered_map<uint64_t, uint64_t> weights;
        for (const VelPatchMatch& match : m_found) {
            weights[match.oldStart - match.newStart] += match.length;
        }
        for (uint64_t least = 2 * uint64_t{m_seeding.seedLength};
             m_found.size() > m_mostMatches / 2; least *= 2) {
            std::erase_if(m_found, [&](const VelPatchMatch& match) {
                return weights[match.oldStart - match.newStart] < least;
            });
        }
    }

    std::span<const uint8_t> m_old;
    std::span<const uint8_t> m_new;
    const VelPatchSeeding& m_seeding;
    uint64_t m_mostMatches;
    const SeedIndex& m_index;
    CoveredDiagonals m_covered;
    uint64_t m_lastDiagonal = 0;
    std::vector<VelPatchMatch> m_found;
};

/// Best chains by where they end in the old file: a Fenwick tree over ranks with prefix maxima.
class ChainTree {
public:
    struct Best {
        uint64_t score = 0;
        uint32_t match = UINT32_MAX;
    };
    explicit ChainTree(size_t count) : m_nodes(count + 1) {}
    void Put(size_t rank, const Best& best) {
        for (size_t i = rank + 1; i < m_nodes.size(); i += i & (~i + 1)) {
            if (best.score > m_nodes[i].score) {
                m_nodes[i] = best;
            }
        }
    }
    /// The best among the first `count` ranks.
    Best Get(size_t count) const {
        Best best;
        for (size_t i = count; i > 0; i &= i - 1) {
            if (m_nodes[i].score > best.score) {
                best = m_nodes[i];
            }
        }
        return best;
    }

private:
    std::vector<Best> m_nodes;
};

// Neighbours may overlap by chance (the bytes around an insertion often agree with both sides);
// this many bytes are forgiven in the choice and trimmed afterwards.
uint64_t SlackOf(const VelPatchMatch& match) {
    return std::min<uint64_t>(match.length / 2, 16);
}

bool IsRising(const std::vector<VelPatchMatch>& matches) {
    for (size_t i = 1; i < matches.size(); i++) {
        if (matches[i].oldStart < matches[i - 1].OldEnd() ||
            matches[i].newStart < matches[i - 1].NewEnd()) {
            return false;
        }
    }
    return true;
}

/// Cuts the front of each match by what it overlaps its predecessor.
void TrimOverlaps(std::vector<VelPatchMatch>& matches) {
    size_t kept = 0;
    for (VelPatchMatch match : matches) {
        if (kept > 0) {
            const VelPatchMatch& last = matches[kept - 1];
            const uint64_t inOld =
                last.OldEnd() > match.oldStart ? last.OldEnd() - match.oldStart : 0;
            const uint64_t inNew =
                last.NewEnd() > match.newStart ? last.NewEnd() - match.newStart : 0;
            const uint64_t cut = std::max(inOld, inNew);
            if (cut >= match.length) {
                continue;
            }
            match.oldStart += cut;
            match.newStart += cut;
            match.length -= cut;
        }
        matches[kept++] = match;
    }
    matches.resize(kept);
}

} // namespace

uint64_t CommonPrefix(const uint8_t* a, const uint8_t* b, uint64_t limit) {
    uint64_t at = 0;
    while (limit - at >= 8) {
        const uint64_t differing = Load64(a + at) ^ Load64(b + at);
        if (differing != 0) {
            const int zeros = std::endian::native == std::endian::little
                                  ? std::countr_zero(differing)
                                  : std::countl_zero(differing);
            return at + static_cast<uint64_t>(zeros / 8);
        }
        at += 8;
    }
    while (at < limit && a[at] == b[at]) {
        at++;
    }
    return at;
}

uint64_t CommonSuffix(const uint8_t* aEnd, const uint8_t* bEnd, uint64_t limit) {
    uint64_t length = 0;
    while (limit - length >= 8) {
        const uint64_t differing = Load64(aEnd - length - 8) ^ Load64(bEnd - length - 8);
        if (differing != 0) {
            const int zeros = std::endian::native == std::endian::little
                                  ? std::countl_zero(differing)
                                  : std::countr_zero(differing);
            return length + static_cast<uint64_t>(zeros / 8);
        }
        length += 8;
    }
    while (length < limit && *(aEnd - length - 1) == *(bEnd - length - 1)) {
        length++;
    }
    return length;
}

std::vector<VelPatchMatch> FindSeedMatches(std::span<const uint8_t> oldBytes,
                                           std::span<const uint8_t> newBytes,
                                           const VelPatchSeeding& seeding, unsigned workers) {
    if (oldBytes.size() < seeding.seedLength || newBytes.size() < seeding.seedLength) {
        return {};
    }
    const SeedIndex index(oldBytes, seeding.seedLength, seeding.step, workers);
    const size_t stretches = static_cast<size_t>(newBytes.size() / kStretch + 1);
    std::vector<std::vector<VelPatchMatch>> founds(stretches);
    const auto scan = [&](size_t i) {
        founds[i] = SeedScan(oldBytes, newBytes, seeding, index, seeding.mostMatches / stretches)
                        .Run(i * kStretch, (i + 1) * kStretch);
    };
    RunParallel(stretches, workers, scan);
    std::vector<VelPatchMatch> all = std::move(founds[0]);
    for (size_t i = 1; i < stretches; i++) {
        all.insert(all.end(), founds[i].begin(), founds[i].end());
        founds[i] = std::vector<VelPatchMatch>();
    }
    std::sort(all.begin(), all.end(), [](const VelPatchMatch& a, const VelPatchMatch& b) {
        return a.newStart != b.newStart ? a.newStart < b.newStart : a.oldStart < b.oldStart;
    });
    return all;
}

void KeepHeaviestChain(std::vector<VelPatchMatch>& matches, std::span<const uint8_t> oldBytes,
                       std::span<const uint8_t> newBytes, unsigned workers) {
    const uint64_t endDiagonal = newBytes.size() - oldBytes.size();
    uint64_t bridgeBudget = kBridgeBudget * newBytes.size();
    const auto likeness = [&](const VelPatchMatch& last, const VelPatchMatch& next) {
        const uint64_t start = last.NewEnd();
        if (next.newStart <= start ||
            next.newStart - start > std::min(kMostBridged, bridgeBudget)) {
            return uint64_t{0};
        }
        bridgeBudget -= next.newStart - start;
        const uint8_t* const older = oldBytes.data() + last.OldEnd();
        const uint8_t* const newer = newBytes.data() + start;
        uint64_t equal = 0;
        for (uint64_t i = 0; i < next.newStart - start; i++) {
            equal += older[i] == newer[i] ? 1 : 0;
        }
        return equal;
    };
    const auto diagonalOf = [](const VelPatchMatch& match) {
        return match.newStart - match.oldStart;
    };
    if (endDiagonal == 0 && IsRising(matches) &&
        std::all_of(matches.begin(), matches.end(),
                    [&](const VelPatchMatch& match) { return diagonalOf(match) == 0; })) {
        return;
    }
    const auto count = static_cast<uint32_t>(matches.size());
    const auto endInOld = [&](uint32_t i) { return matches[i].OldEnd() - SlackOf(matches[i]); };
    const auto endInNew = [&](uint32_t i) { return matches[i].NewEnd() - SlackOf(matches[i]); };

    // By where they end in either file; equal ends in the order of the matches.
    struct End {
        uint64_t at;
        uint32_t match;
        bool operator<(const End& other) const {
            return at != other.at ? at < other.at : match < other.match;
        }
    };
    std::vector<End> byNewEnd(count);
    std::vector<uint64_t> oldEnds(count);
    std::vector<uint32_t> rankOf(count);
    RunParallel(2, count < kLeastToSort ? 1 : workers, [&](size_t which) {
        std::vector<End> byOldEnd(which == 0 ? 0 : count);
        std::vector<End>& ends = which == 0 ? byNewEnd : byOldEnd;
        for (uint32_t i = 0; i < count; i++) {
            ends[i] = {which == 0 ? endInNew(i) : endInOld(i), i};
        }
        std::sort(ends.begin(), ends.end());
        for (uint32_t rank = 0; rank < byOldEnd.size(); rank++) {
            oldEnds[rank] = byOldEnd[rank].at;
            rankOf[byOldEnd[rank].match] = rank;
        }
    });

    ChainTree tree(count);
    std::vector<uint64_t> scores(count);
    std::vector<uint32_t> previous(count);
    // Without any match: the range goes on as it began.
    ChainTree::Best best = {endDiagonal == 0 ? kDiagonalChange : 0, UINT32_MAX};
    std::unordered_map<uint64_t, ChainTree::Best> lastOn = {{0, ChainTree::Best()}};
    uint32_t entered = 0;
    for (uint32_t i = 0; i < count; i++) {
        while (entered < count && byNewEnd[entered].at <= matches[i].newStart) {
            const uint32_t done = byNewEnd[entered++].match;
            tree.Put(rankOf[done], {scores[done], done});
        }
        const auto reachable =
            std::upper_bound(oldEnds.begin(), oldEnds.end(), matches[i].oldStart);
        const ChainTree::Best before = tree.Get(static_cast<size_t>(reachable - oldEnds.begin()));
        const uint64_t diagonal = diagonalOf(matches[i]);
        const auto last = lastOn.find(diagonal);
        if (last != lastOn.end() && last->second.score + kDiagonalChange >= before.score) {
            scores[i] = last->second.score + matches[i].length;
            if (last->second.match != UINT32_MAX) {
                scores[i] += likeness(matches[last->second.match], matches[i]);
            }
            previous[i] = last->second.match;
        } else if (before.score + matches[i].length > kDiagonalChange) {
            scores[i] = before.score + matches[i].length - kDiagonalChange;
            previous[i] = before.match;
        } else {
            scores[i] = 0; // not worth beginning
            previous[i] = UINT32_MAX;
            continue;
        }
        lastOn[diagonal] = {scores[i], i};
        const uint64_t atEnd = scores[i] + (diagonal == endDiagonal ? kDiagonalChange : 0);
        if (atEnd > best.score) {
            best = {atEnd, i};
        }
    }

    std::vector<VelPatchMatch> chain;
    for (uint32_t i = best.match; i != UINT32_MAX; i = previous[i]) {
        chain.push_back(matches[i]);
    }
    std::reverse(chain.begin(), chain.end());
    TrimOverlaps(chain);
    matches = std::move(chain);
}

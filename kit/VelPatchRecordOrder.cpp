#include "kit/VelPatchRecordOrder.h"

#include "kit/VelPatchDeflater.h"

#include <algorithm>
#include <cmath>
#include <deque>

namespace {

constexpr size_t kWindow = VelPatchDeflater::kWindow;
constexpr size_t kMarkLength = 12;       // bytes
constexpr uint64_t kMarkSpacing = 8;     // one position in so many is marked
constexpr size_t kMostSharers = 100;     // what more records have is near anyway
constexpr int64_t kMarkWeight = 1 << 12; // shared out among the other records that have the mark
constexpr double kSmallRecord = 100;     // bytes; keeps tiny ones from coming first

class Placer {
public:
    explicit Placer(const std::vector<VelPatchRecordToPlace>& records)
        : m_records(records), m_scores(records.size(), 0), m_isPlaced(records.size(), false) {
        std::vector<Occurrence> all;
        for (size_t i = 0; i < records.size(); i++) {
            Mark(i, all);
        }
        Link(all);
        for (const VelPatchRecordToPlace& record : records) {
            m_charges.push_back(std::sqrt(static_cast<double>(record.bytes.size()) + kSmallRecord));
        }
    }

    std::vector<size_t> Run() {
        std::vector<size_t> order;
        while (order.size() < m_records.size()) {
            const size_t next = Choose();
            m_isPlaced[next] = true;
            order.push_back(next);
            Enter(next);
            // One that lies half outside the window still helps what comes next.
            while (m_window.size() > 1 && m_window.front().middle + kWindow < m_end) {
                Leave();
            }
        }
        return order;
    }

private:
    /// A mark in a record. Only a record's first 32 KiB can look back at another, and only its last
    /// ones can be looked back at.
    struct Occurrence {
        uint32_t mark;
        uint32_t record;
        bool isInHead;
        bool isInTail;
    };
    struct Placed {
        size_t record;
        size_t middle; ///< bytes from the start of the order
    };

    void Mark(size_t index, std::vector<Occurrence>& all) const {
        const size_t size = m_records[index].bytes.size();
        const size_t headEnd = std::min(size, kWindow);
        const size_t tailStart = size - headEnd;
        if (tailStart <= headEnd) {
            MarkRange(index, 0, size, all);
        } else {
            MarkRange(index, 0, headEnd, all);
            MarkRange(index, tailStart, size, all);
        }
    }

    void MarkRange(size_t index, size_t start, size_t end, std::vector<Occurrence>& all) const {
        constexpr uint64_t kFactor = 0x9E3779B97F4A7C15ULL;
        uint64_t outgoing = 1; // of the byte that leaves the rolling hash
        for (size_t i = 0; i < kMarkLength; i++) {
            outgoing *= kFactor;
        }
        const std::span<const uint8_t> bytes = m_records[index].bytes;
        uint64_t rolling = 0;
        for (size_t at = start; at < end; at++) {
            rolling = rolling * kFactor + bytes[at] + 1;
            if (at >= start + kMarkLength) {
                rolling -= outgoing * (uint64_t{bytes[at - kMarkLength]} + 1);
            }
            uint64_t mixed = (rolling ^ (rolling >> 31)) * 0xBF58476D1CE4E5B9ULL; // splitmix64
            mixed ^= mixed >> 29;
            if (at + 1 >= start + kMarkLength && mixed % kMarkSpacing == 0) {
                all.push_back({static_cast<uint32_t>(mixed >> 32), static_cast<uint32_t>(index),
                               at < kWindow, at + kWindow >= bytes.size()});
            }
        }
    }

    /// Keeps the marks that records share, under numbers of their own.
    void Link(std::vector<Occurrence>& all) {
        std::sort(all.begin(), all.end(), [](const Occurrence& a, const Occurrence& b) {
            return a.mark != b.mark ? a.mark < b.mark : a.record < b.record;
        });
        m_tails.resize(m_records.size());
        m_headStarts.push_back(0);
        for (auto start = all.begin(); start != all.end();) {
            auto end = start;
            auto kept = start; // one occurrence for each record
            for (; end != all.end() && end->mark == start->mark; ++end) {
                if (kept->record != end->record) {
                    *++kept = *end;
                }
                kept->isInHead |= end->isInHead;
                kept->isInTail |= end->isInTail;
            }
            const auto others = static_cast<size_t>(kept - start);
            if (others > 0 && others < kMostSharers) {
                for (auto each = start; each <= kept; ++each) {
                    if (each->isInTail) {
                        m_tails[each->record].push_back(static_cast<uint32_t>(m_weights.size()));
                    }
                    if (each->isInHead) {
                        m_heads.push_back(each->record);
                    }
                }
                m_headStarts.push_back(m_heads.size());
                m_weights.push_back(kMarkWeight / static_cast<int64_t>(others));
            }
            start = end;
        }
        m_timesInWindow.assign(m_weights.size(), 0);
    }

    /// The record that shares most with the window for its size, else the first that is left; or
    /// what must stay in front of it.
    size_t Choose() const {
        size_t best = VelPatchRecordToPlace::kNone;
        double bestScore = -1;
        for (size_t i = 0; i < m_records.size(); i++) {
            const double score = static_cast<double>(m_scores[i]) / m_charges[i];
            if (!m_isPlaced[i] && score > bestScore) {
                best = i;
                bestScore = score;
            }
        }
        while (m_records[best].after != VelPatchRecordToPlace::kNone &&
               !m_isPlaced[m_records[best].after]) {
            best = m_records[best].after;
        }
        return best;
    }

    void Enter(size_t record) {
        for (const uint32_t mark : m_tails[record]) {
            if (m_timesInWindow[mark]++ == 0) {
                Score(mark, m_weights[mark]);
            }
        }
        const size_t size = m_records[record].bytes.size();
        m_window.push_back({record, m_end + size / 2});
        m_end += size;
    }

    void Leave() {
        for (const uint32_t mark : m_tails[m_window.front().record]) {
            if (--m_timesInWindow[mark] == 0) {
                Score(mark, -m_weights[mark]);
            }
        }
        m_window.pop_front();
    }

    void Score(uint32_t mark, int64_t weight) {
        for (size_t i = m_headStarts[mark]; i < m_headStarts[mark + 1]; i++) {
            m_scores[m_heads[i]] += weight;
        }
    }

    const std::vector<VelPatchRecordToPlace>& m_records;
    std::vector<double> m_charges; ///< per record: by what its score is divided
    std::vector<int64_t> m_scores; ///< per record: what it shares with the window
    std::vector<bool> m_isPlaced;
    std::vector<std::vector<uint32_t>> m_tails; ///< per record: the marks that it offers
    std::vector<int64_t> m_weights;             ///< per mark
    std::vector<size_t> m_headStarts;           ///< per mark, into the next:
    std::vector<uint32_t> m_heads;              ///< records that can use the mark
    std::vector<uint32_t> m_timesInWindow;      ///< per mark
    std::deque<Placed> m_window;
    size_t m_end = 0; ///< bytes placed
};

} // namespace

std::vector<size_t> PlaceRecords(const std::vector<VelPatchRecordToPlace>& records) {
    return Placer(records).Run();
}

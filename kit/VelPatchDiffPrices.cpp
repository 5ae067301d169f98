#include "kit/VelPatchDiffPrices.h"

#include "kit/VelPatchParallel.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include <zlib.h>

namespace {

constexpr uint32_t kUnit = 16; // prices are in sixteenths of a bit
constexpr int kRounds = 3;
// A run of this length is never given up, which bounds how far the choice looks back.
constexpr uint64_t kSurelyWorthy = 32;
constexpr size_t kMostGivenUp = 16;      // in a row
constexpr size_t kShareLength = 1 << 14; // runs that one thread takes at a time
constexpr uint64_t kSmall = 64;          // lengths below it have a price of their own

// Bits of a command that its numbers don't explain: half the share of copies, half of replaces.
constexpr uint32_t kCommandPrice = 4 * kUnit;
// Literal bytes that are compressed to see how far repetition makes them cheaper.
constexpr size_t kSample = 1 << 18;
constexpr double kLeastFactor = 0.25;

/// A number below kSmall by itself, a larger one by its size.
size_t ClassOf(uint64_t number) {
    return number < kSmall
               ? static_cast<size_t>(number)
               : static_cast<size_t>(kSmall) + static_cast<size_t>(std::bit_width(number));
}
constexpr size_t kClasses = kSmall + 65;

uint32_t ExtraOf(uint64_t number) {
    return number < kSmall ? 0
                           : (static_cast<uint32_t>(std::bit_width(number)) - 1) * kUnit * 3 / 4;
}

/// How often each of a set of symbols has come up, and its price.
template <size_t Count> struct Model {
    std::vector<uint32_t> counts = std::vector<uint32_t>(Count, 0);
    std::vector<uint32_t> prices = std::vector<uint32_t>(Count, 0);

    void Clear() { std::fill(counts.begin(), counts.end(), 0); }
    void Price(double most) {
        double total = 0;
        for (const uint32_t count : counts) {
            total += count;
        }
        for (size_t i = 0; i < Count; i++) {
            const double seen = std::max(static_cast<double>(counts[i]), 0.5);
            const double bits = std::min(std::log2(std::max(total, 1.0) / seen), most);
            prices[i] = static_cast<uint32_t>(bits * kUnit);
        }
    }
};

class Chooser {
public:
    Chooser(std::vector<VelPatchMatch>& runs, std::span<const uint8_t> newBytes, unsigned workers)
        : m_runs(runs), m_new(newBytes), m_workers(workers) {
        SetBorders();
        // To begin with: a literal byte at about 6 bits, each command at about 14.
        std::fill(m_literals.prices.begin(), m_literals.prices.end(), 6 * kUnit);
        std::fill(m_copies.prices.begin(), m_copies.prices.end(), 4 * kUnit);
        std::fill(m_shifts.prices.begin(), m_shifts.prices.end(), 4 * kUnit);
        std::fill(m_edits.prices.begin(), m_edits.prices.end(), 4 * kUnit);
    }

    void Run() {
        for (int round = 0; round < kRounds; round++) {
            Choose();
            Count();
        }
        size_t kept = 0;
        for (size_t i = 0; i < m_runs.size(); i++) {
            if (m_isKept[i]) {
                m_runs[kept++] = m_runs[i];
            }
        }
        m_runs.resize(kept);
    }

private:
    uint32_t LiteralPrice(uint64_t start, uint64_t end) const {
        uint64_t price = 0;
        for (uint64_t at = start; at < end; at++) {
            price += m_literals.prices[m_new[at]];
        }
        return static_cast<uint32_t>(std::min<uint64_t>(price, UINT32_MAX / 4));
    }
    uint32_t ReplacePrice(uint64_t skip, uint64_t length) const {
        if (skip == 0 && length == 0) {
            return 0;
        }
        if (skip == length) {
            return kCommandPrice + m_edits.prices[ClassOf(length)] + ExtraOf(length);
        }
        return kCommandPrice + m_edits.prices[kClasses] + m_shifts.prices[ClassOf(skip)] +
               ExtraOf(skip) + m_shifts.prices[ClassOf(length)] + ExtraOf(length);
    }
    uint32_t CopyPrice(uint64_t length) const {
        return kCommandPrice + m_copies.prices[ClassOf(length)] + ExtraOf(length);
    }

    void Choose() {
        const size_t count = m_runs.size();
        m_cost.resize(count + 1);
        m_previous.resize(count + 1);
        m_isKept.assign(count, 0);
        m_ownPrice.resize(count);
        m_gapPrice.resize(count + 1);
        const auto choose = [&](size_t share) {
            ChooseShare(m_borders[share], m_borders[share + 1]);
        };
        RunParallel(m_borders.size() - 1, m_workers, choose);
        for (size_t at = m_previous[count]; at != 0; at = m_previous[at - 1]) {
            m_isKept[at - 1] = 1;
        }
    }

    /// Cuts the runs behind ones that are surely kept, so that the choice in each share is by
    /// itself.
    void SetBorders() {
        m_borders = {0};
        for (size_t i = kShareLength; i < m_runs.size(); i++) {
            if (i - m_borders.back() >= kShareLength && m_runs[i - 1].length >= kSurelyWorthy) {
                m_borders.push_back(i);
            }
        }
        m_borders.push_back(m_runs.size() + 1); // number `size`: the end of the file
    }

    void ChooseShare(size_t first, size_t last) {
        const size_t count = m_runs.size();
        for (size_t i = first; i < last; i++) {
            const uint64_t start = i == 0 ? 0 : m_runs[i - 1].NewEnd();
            const uint64_t end = i == count ? m_new.size() : m_runs[i].newStart;
            m_gapPrice[i] = LiteralPrice(start, end);
            if (i < count) {
                m_ownPrice[i] = m_runs[i].length < kSurelyWorthy
                                    ? LiteralPrice(m_runs[i].newStart, m_runs[i].NewEnd())
                                    : 0;
            }
        }
        for (size_t i = first; i < last; i++) {
            const bool isEnd = i == count;
            const uint64_t newAt = isEnd ? m_new.size() : m_runs[i].newStart;
            uint64_t literals = m_gapPrice[i];
            uint64_t best = UINT64_MAX;
            size_t from = 0;
            // `before` counts the kept predecessor from 1; 0 is the start of the file.
            for (size_t before = i, steps = 0;; before--, steps++) {
                const uint64_t oldEnd = before == 0 ? 0 : m_runs[before - 1].OldEnd();
                const uint64_t newEnd = before == 0 ? 0 : m_runs[before - 1].NewEnd();
                // What is left of the old file at the end needs no word.
                const uint64_t skip = isEnd ? newAt - newEnd : m_runs[i].oldStart - oldEnd;
                const uint64_t cost = (before <= first ? 0 : m_cost[before - 1]) + literals +
                                      ReplacePrice(skip, newAt - newEnd);
                if (cost < best) {
                    best = cost;
                    from = before;
                }
                if (before == 0 || steps == kMostGivenUp ||
                    m_runs[before - 1].length >= kSurelyWorthy) {
                    break;
                }
                literals += m_ownPrice[before - 1] + m_gapPrice[before - 1];
            }
            m_cost[i] = best + (isEnd ? 0 : CopyPrice(m_runs[i].length));
            m_previous[i] = static_cast<uint32_t>(from);
        }
    }

    void Count() {
        m_literals.Clear();
        m_copies.Clear();
        m_shifts.Clear();
        m_edits.Clear();
        m_sample.clear();
        uint64_t oldAt = 0;
        uint64_t newAt = 0;
        for (size_t i = 0; i <= m_runs.size(); i++) {
            if (i < m_runs.size() && !m_isKept[i]) {
                continue;
            }
            const bool isEnd = i == m_runs.size();
            const uint64_t length = (isEnd ? m_new.size() : m_runs[i].newStart) - newAt;
            const uint64_t skip = isEnd ? length : m_runs[i].oldStart - oldAt;
            for (uint64_t at = newAt; at < newAt + length; at++) {
                m_literals.counts[m_new[at]]++;
            }
            const uint64_t room = kSample - m_sample.size();
            const uint8_t* const literals = m_new.data() + newAt;
            m_sample.insert(m_sample.end(), literals, literals + std::min(length, room));
            if (skip == length) {
                m_edits.counts[ClassOf(length)]++;
            } else {
                m_edits.counts[kClasses]++;
                m_shifts.counts[ClassOf(skip)]++;
                m_shifts.counts[ClassOf(length)]++;
            }
            if (!isEnd) {
                m_copies.counts[ClassOf(m_runs[i].length)]++;
                oldAt = m_runs[i].OldEnd();
                newAt = m_runs[i].NewEnd();
            }
        }
        PriceLiterals();
        m_copies.Price(14);
        m_shifts.Price(14);
        m_edits.Price(14);
    }

    /// By how often each byte comes up, and by what a compressor makes of their order: it finds
    /// repetition in text, and little in machine code.
    void PriceLiterals() {
        m_literals.Price(12);
        uint64_t bits = 0;
        for (const uint8_t byte : m_sample) {
            bits += m_literals.prices[byte];
        }
        bits /= kUnit;
        if (bits == 0) {
            return;
        }
        uLongf packed = compressBound(static_cast<uLong>(m_sample.size()));
        std::vector<uint8_t> out(packed);
        compress2(out.data(), &packed, m_sample.data(), static_cast<uLong>(m_sample.size()), 6);
        const double factor = std::clamp(
            static_cast<double>(packed) * 8 / static_cast<double>(bits), kLeastFactor, 1.1);
        for (uint32_t& price : m_literals.prices) {
            price = static_cast<uint32_t>(price * factor);
        }
    }

    std::vector<VelPatchMatch>& m_runs;
    std::span<const uint8_t> m_new;
    unsigned m_workers;
    std::vector<size_t> m_borders; ///< of the shares that threads take
    std::vector<uint8_t> m_sample;
    Model<256> m_literals;
    Model<kClasses> m_copies;
    Model<kClasses> m_shifts;    ///< skip and length of a replace whose two differ
    Model<kClasses + 1> m_edits; ///< length of a replace in place; the last: the two differ
    std::vector<uint64_t> m_cost;
    std::vector<uint32_t> m_previous;
    std::vector<uint32_t> m_ownPrice;
    std::vector<uint32_t> m_gapPrice;
    std::vector<uint8_t> m_isKept;
};

} // namespace

void KeepWorthyRuns(std::vector<VelPatchMatch>& runs, std::span<const uint8_t> newBytes,
                    unsigned workers) {
    if (!runs.empty()) {
        Chooser(runs, newBytes, workers).Run();
    }
}

#include "kit/VelPatchDeflater.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace {

constexpr uint32_t kLeastMatch = 3;
constexpr uint32_t kMostMatch = 258;
constexpr int32_t kNowhere = INT32_MIN / 2;
constexpr int kHashBits = 15;
constexpr int kSearchDepth = 128;
constexpr uint32_t kMostMatchesKept = 24; // per position
constexpr int kRounds = 2;                // of parsing a block with its own prices
constexpr uint32_t kPriceUnit = 16;
// Block borders stand at multiples of this many bytes; more would cost time, fewer size.
constexpr uint32_t kBorderStep = 4096;
constexpr int kMaxCodeLength = 15;
constexpr int kMaxHeaderCodeLength = 7;
constexpr int kEndOfBlock = 256;

constexpr uint16_t kLengthBase[29] = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                      15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                      67, 83, 99, 115, 131, 163, 195, 227, 258};
constexpr uint8_t kLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                      2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
constexpr uint16_t kDistanceBase[30] = {
    1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
    193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
constexpr uint8_t kDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                        6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};

struct LengthTable {
    uint8_t symbolOf[kMostMatch + 1] = {}; // less 257
    constexpr LengthTable() {
        for (uint32_t length = kLeastMatch, symbol = 0; length <= kMostMatch; length++) {
            while (symbol < 28 && length >= kLengthBase[symbol + 1]) {
                symbol++;
            }
            symbolOf[length] = static_cast<uint8_t>(symbol);
        }
    }
};
constexpr LengthTable kLengths;

uint32_t DistanceSymbol(uint32_t distance) {
    if (distance <= 4) {
        return distance - 1;
    }
    const auto bits = static_cast<uint32_t>(std::bit_width(distance - 1) - 1);
    return 2 * bits + (((distance - 1) >> (bits - 1)) & 1);
}

uint32_t Load32(const uint8_t* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, sizeof word);
    return word;
}

uint32_t HashOf(uint32_t word) {
    return (word * 0x9E3779B1U) >> (32 - kHashBits);
}

/// Code lengths of at most `most` bits that make the counted symbols shortest in sum: package-merge
/// (Larmore and Hirschberg, 1990).
void MakeLengths(const uint32_t* counts, int count, int most, uint8_t* lengths) {
    struct Node {
        uint64_t weight;
        int32_t symbol; // or -1: the pair of `left` and its successor in the list below
        int32_t left;
    };
    std::vector<Node> leaves;
    for (int i = 0; i < count; i++) {
        lengths[i] = 0;
        if (counts[i] != 0) {
            leaves.push_back({counts[i], i, -1});
        }
    }
    if (leaves.size() <= 2) {
        for (const Node& leaf : leaves) {
            lengths[leaf.symbol] = 1;
        }
        return;
    }
    std::stable_sort(leaves.begin(), leaves.end(),
                     [](const Node& a, const Node& b) { return a.weight < b.weight; });
    std::vector<std::vector<Node>> lists = {leaves};
    for (int level = 1; level < most; level++) {
        const std::vector<Node>& below = lists.back();
        std::vector<Node> list;
        size_t leaf = 0;
        for (size_t pair = 0; pair + 1 < below.size() || leaf < leaves.size();) {
            const bool hasPair = pair + 1 < below.size();
            const uint64_t weight = hasPair ? below[pair].weight + below[pair + 1].weight : 0;
            if (!hasPair || (leaf < leaves.size() && leaves[leaf].weight <= weight)) {
                list.push_back(leaves[leaf++]);
            } else {
                list.push_back({weight, -1, static_cast<int32_t>(pair)});
                pair += 2;
            }
        }
        lists.push_back(std::move(list));
    }
    // The first 2n-2 nodes of the last list; a pair among them means the two nodes below it.
    size_t taken = 2 * leaves.size() - 2;
    for (size_t level = lists.size(); level-- > 0;) {
        size_t below = 0;
        for (size_t i = 0; i < taken; i++) {
            const Node& node = lists[level][i];
            if (node.symbol >= 0) {
                lengths[node.symbol]++;
            } else {
                below += 2;
            }
        }
        taken = below;
    }
}

/// The codes of RFC 1951, section 3.2.2, with their bits turned round.
void MakeCodes(const uint8_t* lengths, int count, uint16_t* codes) {
    uint16_t next[kMaxCodeLength + 2] = {};
    for (int i = 0; i < count; i++) {
        next[lengths[i] + 1]++;
    }
    next[1] = 0;
    for (int bits = 1; bits <= kMaxCodeLength; bits++) {
        next[bits + 1] = static_cast<uint16_t>((next[bits + 1] + next[bits]) << 1);
    }
    for (int i = 0; i < count; i++) {
        uint32_t code = lengths[i] == 0 ? 0 : next[lengths[i]]++;
        uint32_t turned = 0;
        for (int bit = 0; bit < lengths[i]; bit++, code >>= 1) {
            turned = turned << 1 | (code & 1);
        }
        codes[i] = static_cast<uint16_t>(turned);
    }
}

double Bits(const uint32_t* counts, int count) {
    double total = 0;
    double bits = 0;
    for (int i = 0; i < count; i++) {
        if (counts[i] != 0) {
            total += counts[i];
            bits -= counts[i] * std::log2(static_cast<double>(counts[i]));
        }
    }
    return total > 0 ? bits + total * std::log2(total) : 0;
}

void PriceSymbols(const uint32_t* counts, int count, uint32_t* prices) {
    double total = 0;
    for (int i = 0; i < count; i++) {
        total += counts[i];
    }
    for (int i = 0; i < count; i++) {
        // A symbol that the last round did without may come in at the price of a rare one.
        const double seen = std::max(static_cast<double>(counts[i]), 0.5);
        const double bits = std::clamp(std::log2(std::max(total, 1.0) / seen), 0.5, 14.0);
        prices[i] = static_cast<uint32_t>(std::lround(bits * kPriceUnit));
    }
}

} // namespace

struct VelPatchDeflater::Prices {
    uint32_t literal[256];
    uint32_t length[kMostMatch + 1];
    uint32_t distance[kDistanceSymbols];

    explicit Prices(const Counts& counts) {
        uint32_t symbols[kLiteralSymbols];
        PriceSymbols(counts.literal, kLiteralSymbols, symbols);
        std::copy_n(symbols, 256, literal);
        for (uint32_t i = kLeastMatch; i <= kMostMatch; i++) {
            const uint32_t symbol = kLengths.symbolOf[i];
            length[i] = symbols[257 + symbol] + kLengthExtra[symbol] * kPriceUnit;
        }
        PriceSymbols(counts.distance, kDistanceSymbols, distance);
        for (int i = 0; i < kDistanceSymbols; i++) {
            distance[i] += kDistanceExtra[i] * kPriceUnit;
        }
    }
};

/// Bits from the low end of each byte upwards.
class VelPatchDeflater::BitWriter {
public:
    explicit BitWriter(std::vector<uint8_t>& out) : m_out(out) {}
    void Put(uint32_t value, int count) {
        m_pending |= static_cast<uint64_t>(value) << m_count;
        m_count += count;
        while (m_count >= 8) {
            m_out.push_back(static_cast<uint8_t>(m_pending));
            m_pending >>= 8;
            m_count -= 8;
        }
    }
    void Align() { Put(0, (8 - m_count) & 7); }
    void PutBytes(const uint8_t* bytes, size_t count) {
        m_out.insert(m_out.end(), bytes, bytes + count);
    }

private:
    std::vector<uint8_t>& m_out;
    uint64_t m_pending = 0;
    int m_count = 0;
};

/// The codes of one block and the words that tell them.
struct VelPatchDeflater::Codes {
    uint8_t literalLengths[288] = {};
    uint8_t distanceLengths[kDistanceSymbols + 2] = {};
    uint16_t literalCodes[288];
    uint16_t distanceCodes[kDistanceSymbols];
    bool isFixed = false;
    int literals = 0; ///< symbols told
    int distances = 0;
    struct Word {
        uint8_t symbol;
        uint8_t extra;
    };
    std::vector<Word> words; ///< run-length coded code lengths
    uint8_t wordLengths[19] = {};
    int wordSymbols = 0;

    static constexpr uint8_t kOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                           11, 4,  12, 3, 13, 2, 14, 1, 15};

    static int ExtraBits(uint8_t symbol) {
        return symbol == 16 ? 2 : (symbol == 17 ? 3 : (symbol == 18 ? 7 : 0));
    }

    void MakeFixed() {
        isFixed = true;
        for (int i = 0; i < 288; i++) {
            literalLengths[i] =
                static_cast<uint8_t>(i < 144 ? 8 : (i < 256 ? 9 : (i < 280 ? 7 : 8)));
        }
        std::fill_n(distanceLengths, kDistanceSymbols, uint8_t{5});
        MakeCodes(literalLengths, 288, literalCodes);
        MakeCodes(distanceLengths, kDistanceSymbols, distanceCodes);
    }

    void MakeDynamic(const Counts& counts) {
        MakeLengths(counts.literal, kLiteralSymbols, kMaxCodeLength, literalLengths);
        MakeLengths(counts.distance, kDistanceSymbols, kMaxCodeLength, distanceLengths);
        MakeCodes(literalLengths, kLiteralSymbols, literalCodes);
        MakeCodes(distanceLengths, kDistanceSymbols, distanceCodes);
        literals = kLiteralSymbols;
        while (literals > 257 && literalLengths[literals - 1] == 0) {
            literals--;
        }
        distances = kDistanceSymbols;
        while (distances > 1 && distanceLengths[distances - 1] == 0) {
            distances--;
        }
        TellLengths();
    }

    void TellLengths() {
        std::vector<uint8_t> all(literalLengths, literalLengths + literals);
        all.insert(all.end(), distanceLengths, distanceLengths + distances);
        words.clear();
        for (size_t at = 0; at < all.size();) {
            size_t run = 1;
            while (at + run < all.size() && all[at + run] == all[at]) {
                run++;
            }
            const uint8_t length = all[at];
            at += run;
            if (length == 0) {
                for (; run >= 11; run -= std::min<size_t>(run, 138)) {
                    words.push_back({18, static_cast<uint8_t>(std::min<size_t>(run, 138) - 11)});
                }
                if (run >= 3) {
                    words.push_back({17, static_cast<uint8_t>(run - 3)});
                    run = 0;
                }
            } else if (run >= 4) {
                words.push_back({length, 0});
                run--;
                for (; run >= 3; run -= std::min<size_t>(run, 6)) {
                    words.push_back({16, static_cast<uint8_t>(std::min<size_t>(run, 6) - 3)});
                }
            }
            words.insert(words.end(), run, {length, 0});
        }
        uint32_t counts[19] = {};
        for (const Word& word : words) {
            counts[word.symbol]++;
        }
        MakeLengths(counts, 19, kMaxHeaderCodeLength, wordLengths);
        wordSymbols = 19;
        while (wordSymbols > 4 && wordLengths[kOrder[wordSymbols - 1]] == 0) {
            wordSymbols--;
        }
    }

    uint64_t HeaderBits() const {
        if (isFixed) {
            return 3;
        }
        uint64_t bits = 3 + 14 + 3 * static_cast<uint64_t>(wordSymbols);
        for (const Word& word : words) {
            bits += static_cast<uint64_t>(wordLengths[word.symbol] + ExtraBits(word.symbol));
        }
        return bits;
    }

    uint64_t BodyBits(const Counts& counts) const {
        uint64_t bits = 0;
        for (uint32_t i = 0; i < kLiteralSymbols; i++) {
            const uint32_t extra = i > 256 ? kLengthExtra[i - 257] : 0;
            bits += uint64_t{counts.literal[i]} * (literalLengths[i] + extra);
        }
        for (uint32_t i = 0; i < kDistanceSymbols; i++) {
            bits += uint64_t{counts.distance[i]} * (distanceLengths[i] + kDistanceExtra[i]);
        }
        return bits;
    }

    void WriteHeader(bool isLast, BitWriter& writer) const {
        writer.Put(isLast ? 1 : 0, 1);
        writer.Put(isFixed ? 1 : 2, 2);
        if (isFixed) {
            return;
        }
        writer.Put(static_cast<uint32_t>(literals - 257), 5);
        writer.Put(static_cast<uint32_t>(distances - 1), 5);
        writer.Put(static_cast<uint32_t>(wordSymbols - 4), 4);
        for (int i = 0; i < wordSymbols; i++) {
            writer.Put(wordLengths[kOrder[i]], 3);
        }
        uint16_t codes[19];
        MakeCodes(wordLengths, 19, codes);
        for (const Word& word : words) {
            writer.Put(codes[word.symbol], wordLengths[word.symbol]);
            writer.Put(word.extra, ExtraBits(word.symbol));
        }
    }
};

VelPatchDeflater::VelPatchDeflater()
    : m_heads3(size_t{1} << kHashBits), m_heads4(size_t{1} << kHashBits), m_children(2 * kWindow) {}

void VelPatchDeflater::Compress(std::span<const uint8_t> bytes, size_t windowSize, bool isLast,
                                std::vector<uint8_t>& out) {
    m_bytes = bytes;
    m_start = static_cast<uint32_t>(windowSize);
    const auto end = static_cast<uint32_t>(bytes.size());
    BitWriter writer(out);
    if (m_start < end) {
        FindMatches();
        Counts counts;
        // Where nothing is known yet: literals at about 7 bits, lengths and distances alike.
        std::fill_n(counts.literal, 256, 12U);
        std::fill_n(counts.literal + 257, 29, 12U);
        std::fill_n(counts.distance, kDistanceSymbols, 1U);
        Parse(m_start, end, Prices(counts));
        CountSteps(m_start, end, counts);
        Parse(m_start, end, Prices(counts));
        const std::vector<uint32_t> borders = ChooseBorders();
        for (size_t i = 0; i + 1 < borders.size(); i++) {
            for (int round = 0; round < kRounds; round++) {
                CountSteps(borders[i], borders[i + 1], counts);
                Parse(borders[i], borders[i + 1], Prices(counts));
            }
            WriteBlock(borders[i], borders[i + 1], isLast && i + 2 == borders.size(), writer);
        }
    } else if (isLast) {
        WriteBlock(end, end, true, writer);
    }
    if (!isLast) { // an empty stored block brings the stream to a byte boundary
        writer.Put(0, 3);
        writer.Align();
        writer.Put(0, 16);
        writer.Put(0xFFFF, 16);
    }
    writer.Align();
}

void VelPatchDeflater::FindMatches() {
    std::fill(m_heads3.begin(), m_heads3.end(), kNowhere);
    std::fill(m_heads4.begin(), m_heads4.end(), kNowhere);
    m_matches.clear();
    m_matchEnds.clear();
    const auto end = static_cast<uint32_t>(m_bytes.size());
    uint32_t skipUntil = m_start;
    for (uint32_t at = 0; at < end; at++) {
        const uint32_t most = std::min(kMostMatch, end - at);
        const bool isKept = at >= skipUntil;
        const size_t before = m_matches.size();
        if (most >= 4) {
            FindMatchesAt(at, most, isKept);
        }
        if (at >= m_start) {
            m_matchEnds.push_back(static_cast<uint32_t>(m_matches.size()));
            // Inside a match of the full length there is nothing to gain.
            if (m_matches.size() > before && (m_matches.back() >> 16) == kMostMatch) {
                skipUntil = at + kMostMatch;
            }
        }
    }
}

void VelPatchDeflater::FindMatchesAt(uint32_t position, uint32_t mostLength, bool isKept) {
    const uint8_t* const bytes = m_bytes.data();
    const uint8_t* const here = bytes + position;
    const auto at = static_cast<int32_t>(position);
    constexpr auto kReach = static_cast<int32_t>(kWindow);
    const uint32_t word = Load32(here);
    uint32_t best = kLeastMatch - 1;
    uint32_t kept = 0;
    const auto keep = [&](uint32_t length, int32_t from) {
        if (isKept && length > best && (kept < kMostMatchesKept || length == mostLength)) {
            m_matches.push_back(length << 16 | static_cast<uint32_t>(at - from));
            kept++;
        }
        best = std::max(best, length);
    };

    constexpr uint32_t kThree =
        std::endian::native == std::endian::little ? 0xFFFFFFU : 0xFFFFFF00U;
    int32_t& head3 = m_heads3[HashOf(word & kThree)];
    if (at - head3 < kReach && ((Load32(bytes + head3) ^ word) & kThree) == 0) {
        keep(3, head3);
    }
    head3 = at;

    int32_t& head4 = m_heads4[HashOf(word)];
    int32_t node = head4;
    head4 = at;
    const auto child = [&](int32_t of, int side) -> int32_t& {
        return m_children[2 * (static_cast<size_t>(of) % kWindow) + static_cast<size_t>(side)];
    };
    int32_t* smaller = &child(at, 0);
    int32_t* larger = &child(at, 1);
    uint32_t smallerLength = 0;
    uint32_t largerLength = 0;
    for (int depth = isKept ? kSearchDepth : kSearchDepth / 4;; depth--) {
        if (at - node >= kReach || depth == 0) {
            *smaller = *larger = kNowhere;
            return;
        }
        const uint8_t* const there = bytes + node;
        uint32_t length = std::min(smallerLength, largerLength);
        while (length + 4 <= mostLength) {
            const uint32_t differing = Load32(there + length) ^ Load32(here + length);
            if (differing != 0) {
                const int zeros = std::endian::native == std::endian::little
                                      ? std::countr_zero(differing)
                                      : std::countl_zero(differing);
                length += static_cast<uint32_t>(zeros) / 8;
                break;
            }
            length += 4;
        }
        while (length < mostLength && there[length] == here[length]) {
            length++;
        }
        keep(length, node);
        if (length == mostLength) {
            *smaller = child(node, 0);
            *larger = child(node, 1);
            return;
        }
        if (there[length] < here[length]) {
            *smaller = node;
            smaller = &child(node, 1);
            node = *smaller;
            smallerLength = length;
        } else {
            *larger = node;
            larger = &child(node, 0);
            node = *larger;
            largerLength = length;
        }
    }
}

void VelPatchDeflater::Parse(uint32_t start, uint32_t end, const Prices& prices) {
    // Backwards: the cheapest way from each position to the end.
    m_costs.resize(m_bytes.size() + 1);
    m_steps.resize(m_bytes.size());
    m_costs[end] = 0;
    for (uint32_t at = end; at-- > start;) {
        uint32_t cost = prices.literal[m_bytes[at]] + m_costs[at + 1];
        Step step = {1, 0};
        const uint32_t index = at - m_start;
        uint32_t length = kLeastMatch;
        for (uint32_t i = index == 0 ? 0 : m_matchEnds[index - 1]; i < m_matchEnds[index]; i++) {
            const uint32_t distance = m_matches[i] & 0xFFFF;
            const uint32_t most = std::min(m_matches[i] >> 16, end - at);
            const uint32_t base = prices.distance[DistanceSymbol(distance)];
            for (; length <= most; length++) {
                const uint32_t whole = base + prices.length[length] + m_costs[at + length];
                if (whole < cost) {
                    cost = whole;
                    step = {static_cast<uint16_t>(length), static_cast<uint16_t>(distance)};
                }
            }
        }
        m_costs[at] = cost;
        m_steps[at] = step;
    }
}

void VelPatchDeflater::CountSteps(uint32_t start, uint32_t end, Counts& counts) const {
    counts = Counts();
    for (uint32_t at = start; at < end;) {
        const Step step = m_steps[at];
        if (step.distance == 0) {
            counts.literal[m_bytes[at]]++;
        } else {
            counts.literal[257 + kLengths.symbolOf[step.length]]++;
            counts.distance[DistanceSymbol(step.distance)]++;
        }
        at += step.length;
    }
    counts.literal[kEndOfBlock]++;
}

std::vector<uint32_t> VelPatchDeflater::ChooseBorders() const {
    // The way is cut at the first step behind each multiple of the border step; the cheapest
    // division into blocks follows from the sums of each stretch.
    const auto end = static_cast<uint32_t>(m_bytes.size());
    std::vector<uint32_t> cuts = {m_start};
    std::vector<Counts> sums = {Counts()};
    Counts sum;
    for (uint32_t at = m_start; at < end;) {
        const Step step = m_steps[at];
        if (step.distance == 0) {
            sum.literal[m_bytes[at]]++;
        } else {
            sum.literal[257 + kLengths.symbolOf[step.length]]++;
            sum.distance[DistanceSymbol(step.distance)]++;
        }
        at += step.length;
        if (at >= end || at - cuts.back() >= kBorderStep) {
            cuts.push_back(at);
            sums.push_back(sum);
        }
    }
    std::vector<double> best(cuts.size(), 1e300);
    std::vector<size_t> from(cuts.size(), 0);
    best[0] = 0;
    Counts piece;
    for (size_t to = 1; to < cuts.size(); to++) {
        for (size_t start = 0; start < to; start++) {
            int used = 0;
            for (int i = 0; i < kLiteralSymbols; i++) {
                piece.literal[i] = sums[to].literal[i] - sums[start].literal[i];
                used += piece.literal[i] != 0 ? 1 : 0;
            }
            for (int i = 0; i < kDistanceSymbols; i++) {
                piece.distance[i] = sums[to].distance[i] - sums[start].distance[i];
                used += piece.distance[i] != 0 ? 1 : 0;
            }
            // Extra bits don't depend on the borders. The codes' own words take about 3 bits for
            // each symbol in use.
            const double cost = best[start] + Bits(piece.literal, kLiteralSymbols) +
                                Bits(piece.distance, kDistanceSymbols) + 60 + 3.2 * used;
            if (cost < best[to]) {
                best[to] = cost;
                from[to] = start;
            }
        }
    }
    std::vector<uint32_t> borders;
    for (size_t at = cuts.size() - 1; at != 0; at = from[at]) {
        borders.push_back(cuts[at]);
    }
    borders.push_back(m_start);
    std::reverse(borders.begin(), borders.end());
    return borders;
}

void VelPatchDeflater::WriteBlock(uint32_t start, uint32_t end, bool isLast,
                                  BitWriter& writer) const {
    Counts counts;
    CountSteps(start, end, counts);
    Codes codes;
    codes.MakeDynamic(counts);
    Codes fixed;
    fixed.MakeFixed();
    if (fixed.HeaderBits() + fixed.BodyBits(counts) < codes.HeaderBits() + codes.BodyBits(counts)) {
        codes = fixed;
    }
    constexpr uint32_t kMostStored = 0xFFFF;
    const uint64_t stored = uint64_t{8} * (end - start) + 40 * ((end - start) / kMostStored + 1);
    if (stored < codes.HeaderBits() + codes.BodyBits(counts)) {
        for (uint32_t at = start; at < end || at == start;) {
            const uint32_t count = std::min(kMostStored, end - at);
            writer.Put(isLast && at + count == end ? 1 : 0, 3);
            writer.Align();
            writer.Put(count, 16);
            writer.Put(count ^ 0xFFFF, 16);
            writer.PutBytes(m_bytes.data() + at, count);
            at += std::max(count, 1U);
        }
        return;
    }
    codes.WriteHeader(isLast, writer);
    for (uint32_t at = start; at < end;) {
        const Step step = m_steps[at];
        if (step.distance == 0) {
            writer.Put(codes.literalCodes[m_bytes[at]], codes.literalLengths[m_bytes[at]]);
        } else {
            const uint32_t length = kLengths.symbolOf[step.length];
            writer.Put(codes.literalCodes[257 + length], codes.literalLengths[257 + length]);
            writer.Put(step.length - uint32_t{kLengthBase[length]}, kLengthExtra[length]);
            const uint32_t distance = DistanceSymbol(step.distance);
            writer.Put(codes.distanceCodes[distance], codes.distanceLengths[distance]);
            writer.Put(step.distance - uint32_t{kDistanceBase[distance]}, kDistanceExtra[distance]);
        }
        at += step.length;
    }
    writer.Put(codes.literalCodes[kEndOfBlock], codes.literalLengths[kEndOfBlock]);
}

// Deflate (RFC 1951) that spends time on small output: it looks for the cheapest way to tell the
// bytes instead of taking the first good one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// Compresses one piece of a longer deflate stream. The pieces of a stream can be compressed apart
/// and in any order: each only needs the bytes in front of it, which serve as its window, and each
/// but the last ends on a byte boundary.
///
/// The way: all matches of each position from binary trees (as in LZMA's match finders), the
/// cheapest path through them by dynamic programming under the prices of the previous round, and
/// block borders where they save most. Deterministic; an object is used by one thread at a time and
/// keeps its tables, some 20 MiB at most, for the next piece.
class VelPatchDeflater {
public:
    static constexpr size_t kMaxPiece = 256 * 1024; ///< bytes that one call may compress
    static constexpr size_t kWindow = 32768;        ///< bytes in front of a piece that help

    VelPatchDeflater();

    /// Compresses the bytes behind the first `windowSize` ones, which are only looked back at, and
    /// appends them to `out` as whole blocks; `isLast` marks the end of the deflate stream.
    void Compress(std::span<const uint8_t> bytes, size_t windowSize, bool isLast,
                  std::vector<uint8_t>& out);

private:
    /// A step of the way through the piece: a literal byte (length 1) or a match.
    struct Step {
        uint16_t length;
        uint16_t distance; ///< 0 for a literal
    };
    static constexpr int kLiteralSymbols = 286;
    static constexpr int kDistanceSymbols = 30;
    struct Counts {
        uint32_t literal[kLiteralSymbols] = {};
        uint32_t distance[kDistanceSymbols] = {};
    };
    struct Prices; ///< in sixteenths of a bit
    struct Codes;
    class BitWriter;

    void FindMatches();
    void FindMatchesAt(uint32_t position, uint32_t mostLength, bool isKept);
    void Parse(uint32_t start, uint32_t end, const Prices& prices);
    void CountSteps(uint32_t start, uint32_t end, Counts& counts) const;
    std::vector<uint32_t> ChooseBorders() const;
    void WriteBlock(uint32_t start, uint32_t end, bool isLast, BitWriter& writer) const;

    std::span<const uint8_t> m_bytes;
    uint32_t m_start = 0; ///< of the piece; the window is in front
    std::vector<int32_t> m_heads3;
    std::vector<int32_t> m_heads4;
    std::vector<int32_t> m_children; ///< two per position of the window
    std::vector<uint32_t> m_matches; ///< length in the upper half, distance in the lower one
    std::vector<uint32_t> m_matchEnds;
    std::vector<uint32_t> m_costs;
    std::vector<Step> m_steps; ///< per position of the piece: the step that begins there
};

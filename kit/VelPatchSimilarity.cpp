#include "kit/VelPatchSimilarity.h"

#include "stream/CXStreamFile.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace {

constexpr size_t kMostMarks = 512;
constexpr size_t kReadPiece = 1 << 16;
// Marks that stand in more files than this say little (a licence text, say).
constexpr int kMostVisited = 64;
// A file of N bytes must promise N / 64 shared ones: it is read and checked before the patch runs.
constexpr uint64_t kSizeShare = 64;
constexpr uint64_t kLeastShared = 64;

/// One random word per byte, for the rolling hash (as in gear-based chunking): each byte's word is
/// shifted out after 32 more bytes have gone by.
constexpr std::array<uint32_t, 256> MakeGears() {
    std::array<uint32_t, 256> gears{};
    uint64_t state = 0x1234567890ABCDEFULL;
    for (uint32_t& gear : gears) {
        state += 0x9E3779B97F4A7C15ULL; // splitmix64
        uint64_t mixed = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9ULL;
        mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EBULL;
        gear = static_cast<uint32_t>(mixed >> 32);
    }
    return gears;
}
constexpr std::array<uint32_t, 256> kGears = MakeGears();

/// Spreads the hash, whose low bits have seen only the last bytes.
uint32_t Mix(uint32_t hash) {
    hash ^= hash >> 15;
    hash *= 0x2C1B3C6DU;
    hash ^= hash >> 12;
    return hash;
}

bool IsRound(uint32_t mark, int spacing) {
    return (mark & ((1U << spacing) - 1)) == 0;
}

} // namespace

void VelPatchSketch::Add(std::span<const uint8_t> bytes) {
    auto rolling = static_cast<uint32_t>(m_rolling);
    for (const uint8_t byte : bytes) {
        rolling = (rolling << 1) + kGears[byte];
        // Cheap look first: the top bits have seen all 32 bytes.
        if ((rolling >> 27) != 0) {
            continue;
        }
        const uint32_t mark = Mix(rolling) << 5;
        if (IsRound(mark, m_spacing)) {
            m_marks.push_back(mark);
            if (m_marks.size() >= 8 * kMostMarks) {
                Thin();
            }
        }
    }
    m_rolling = rolling;
    m_size += bytes.size();
}

void VelPatchSketch::Thin() {
    std::sort(m_marks.begin(), m_marks.end());
    m_marks.erase(std::unique(m_marks.begin(), m_marks.end()), m_marks.end());
    while (m_marks.size() > kMostMarks && m_spacing < 31) {
        m_spacing++;
        std::erase_if(m_marks, [&](uint32_t mark) { return !IsRound(mark, m_spacing); });
    }
}

void VelPatchSketch::Finish() {
    Thin();
    m_marks.shrink_to_fit();
}

CXResult VelPatchSketch::OfFile(const CXString& path, VelPatchSketch& sketch) {
    CXStreamFile file;
    file.Open(path, kOpenRead);
    if (!file.IsOpen()) {
        return CXResultCertainFailure(file.GetLastError());
    }
    std::vector<uint8_t> piece(kReadPiece);
    for (uint64_t count = piece.size(); count == piece.size();) {
        count = file.Read(piece.data(), piece.size());
        sketch.Add({piece.data(), static_cast<size_t>(count)});
    }
    sketch.Finish();
    return kCXResultOK;
}

void VelPatchSimilarity::Rehash() {
    std::fill(m_heads.begin(), m_heads.end(), 0U);
    m_heads.resize(std::max<size_t>(1024, m_heads.size() * 4), 0);
    for (uint32_t i = 0; i < m_entries.size(); i++) {
        uint32_t& head = m_heads[Mix(m_entries[i].mark) & (m_heads.size() - 1)];
        m_entries[i].next = head;
        head = i + 1;
    }
}

void VelPatchSimilarity::Add(uint32_t file, const VelPatchSketch& sketch) {
    m_files.push_back({file, sketch.GetFileSize(), sketch.GetSpacing()});
    for (const uint32_t mark : sketch.GetMarks()) {
        if (m_entries.size() >= m_heads.size()) {
            Rehash();
        }
        uint32_t& head = m_heads[Mix(mark) & (m_heads.size() - 1)];
        m_entries.push_back({mark, static_cast<uint32_t>(m_files.size() - 1), head});
        head = static_cast<uint32_t>(m_entries.size());
    }
}

std::vector<VelPatchSimilarity::Candidate> VelPatchSimilarity::Find(const VelPatchSketch& sketch,
                                                                    size_t most) const {
    std::unordered_map<uint32_t, uint64_t> shared;
    if (m_heads.empty()) {
        return {};
    }
    for (const uint32_t mark : sketch.GetMarks()) {
        int visited = 0;
        for (uint32_t at = m_heads[Mix(mark) & (m_heads.size() - 1)];
             at != 0 && visited < kMostVisited; at = m_entries[at - 1].next) {
            const Entry& entry = m_entries[at - 1];
            if (entry.mark == mark) {
                visited++;
                // Marks that only the denser of two sketches could keep don't count.
                const int spacing = std::max(sketch.GetSpacing(), m_files[entry.file].spacing);
                if (IsRound(mark, spacing)) {
                    shared[entry.file] += uint64_t{1} << spacing;
                }
            }
        }
    }
    std::vector<Candidate> found;
    for (const auto& [file, bytes] : shared) {
        const uint64_t charge = m_files[file].size / kSizeShare;
        if (bytes > charge + kLeastShared) {
            found.push_back({file, bytes - charge});
        }
    }
    std::sort(found.begin(), found.end(), [&](const Candidate& a, const Candidate& b) {
        return a.shared != b.shared ? a.shared > b.shared : a.file < b.file;
    });
    found.resize(std::min(found.size(), most));
    for (Candidate& each : found) {
        each.file = m_files[each.file].number;
    }
    return found;
}

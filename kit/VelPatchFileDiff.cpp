#include "kit/VelPatchFileDiff.h"

#include "kit/VelPatchDiffer.h"
#include "kit/VelPatchResultText.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

#include <algorithm>

namespace {

constexpr size_t kReadPiece = 1 << 20;

void AppendU32(std::vector<uint8_t>& out, uint64_t number) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<uint8_t>(number >> shift));
    }
}

/// Writes commands, those of 4 GiB and more in several.
class CommandWriter {
public:
    explicit CommandWriter(std::vector<uint8_t>& out) : m_out(out) {}

    void Copy(uint64_t length) {
        for (; length > 0; length -= std::min(length, kMost)) {
            m_out.push_back(1);
            AppendU32(m_out, std::min(length, kMost));
        }
    }
    void Replace(uint64_t skip, std::span<const uint8_t> literals) {
        while (skip > 0 || !literals.empty()) {
            const uint64_t part = std::min<uint64_t>(literals.size(), kMost);
            m_out.push_back(0);
            AppendU32(m_out, std::min(skip, kMost));
            AppendU32(m_out, part);
            m_out.insert(m_out.end(), literals.begin(),
                         literals.begin() + static_cast<ptrdiff_t>(part));
            skip -= std::min(skip, kMost);
            literals = literals.subspan(static_cast<size_t>(part));
        }
    }

private:
    static constexpr uint64_t kMost = UINT32_MAX;
    std::vector<uint8_t>& m_out;
};

} // namespace

CXResult ReadFileToDiff(const CXString& path, std::vector<uint8_t>& bytes, CXString& problem) {
    bytes.clear();
    CXStreamFile file;
    file.Open(path, kOpenRead);
    CXResult result = file.IsOpen() ? kCXResultOK : CXResultCertainFailure(file.GetLastError());
    const uint64_t size = file.IsOpen() ? file.GetSize() : 0;
    if (result == kCXResultOK && size == 0) { // or a special file, which tells no size
        result = ReadWholeFile(path, bytes, SIZE_MAX / 4);
    } else if (result == kCXResultOK) {
        // Into a place of just the right size: one that grows takes three times as much.
        bytes.resize(static_cast<size_t>(size));
        for (size_t at = 0, part = 0; at < bytes.size() && result == kCXResultOK; at += part) {
            part = std::min(bytes.size() - at, kReadPiece);
            result = file.Read(bytes.data() + at, part) == part
                         ? kCXResultOK
                         : CXResultCertainFailure(file.GetLastError());
        }
    }
    if (result != kCXResultOK) {
        bytes.clear();
        problem = CXString::Format("'%s' can't be read: %s", path.GetData(), ResultText(result));
    }
    return result;
}

std::vector<uint8_t> MakeFileDiff(std::span<const uint8_t> oldBytes,
                                  std::span<const uint8_t> newBytes, unsigned workers) {
    const std::vector<VelPatchMatch> matches =
        VelPatchDiffer(oldBytes, newBytes, workers).FindMatches();
    constexpr size_t kCommandPair = 14;
    size_t size = newBytes.size() + kCommandPair * (matches.size() + 1);
    for (const VelPatchMatch& match : matches) {
        size -= static_cast<size_t>(match.length);
    }
    std::vector<uint8_t> diff;
    diff.reserve(size);
    CommandWriter writer(diff);
    uint64_t oldAt = 0;
    uint64_t newAt = 0;
    for (const VelPatchMatch& match : matches) {
        writer.Replace(match.oldStart - oldAt, newBytes.subspan(newAt, match.newStart - newAt));
        writer.Copy(match.length);
        oldAt = match.OldEnd();
        newAt = match.NewEnd();
    }
    // What is left of the old file needs no word.
    writer.Replace(0, newBytes.subspan(newAt));
    return diff;
}

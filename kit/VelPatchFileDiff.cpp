#include "kit/VelPatchFileDiff.h"

#include "kit/VelPatchCountingStream.h"
#include "kit/VelPatchDiffer.h"
#include "patch/BinaryDiff.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamTools.h"

namespace {

CXResult ReadFile(const CXString& path, std::vector<uint8_t>& bytes, CXString& problem) {
    const CXResult result = ReadWholeFile(path, bytes, SIZE_MAX / 4);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be read (result %d)", path.GetData(), result);
    }
    return result;
}

} // namespace

CXResult VelPatchFileDiff::Make(const CXString& oldPath, const CXString& newPath,
                                CXString& problem) {
    m_matches.clear();
    m_size = UINT64_MAX;
    CXResult result = ReadFile(newPath, m_newBytes, problem);
    if (result != kCXResultOK) {
        return result;
    }
    std::vector<uint8_t> oldBytes;
    result = ReadFile(oldPath, oldBytes, problem);
    if (result == kCXResultOK) {
        m_matches = VelPatchDiffer(oldBytes, m_newBytes).FindMatches();
    }
    return result;
}

uint64_t VelPatchFileDiff::GetSize() {
    if (m_size == UINT64_MAX) {
        VelPatchCountingStream counter;
        Write(counter);
        m_size = counter.GetSize();
    }
    return m_size;
}

void VelPatchFileDiff::Write(CXStream& output) {
    BinaryDiffStreamWriter writer(output);
    CXStreamStaticBuffer newStream(m_newBytes.data(), m_newBytes.size());
    uint64_t oldAt = 0;
    uint64_t newAt = 0;
    for (const VelPatchMatch& match : m_matches) {
        if (match.oldStart > oldAt || match.newStart > newAt) {
            writer.EmitDifference(oldAt, match.oldStart, newStream, newAt, match.newStart);
        }
        writer.EmitMatch(match.oldStart, match.OldEnd());
        oldAt = match.OldEnd();
        newAt = match.NewEnd();
    }
    // What is left of the old file needs no word.
    if (newAt < m_newBytes.size()) {
        writer.EmitDifference(oldAt, oldAt, newStream, newAt, m_newBytes.size());
    }
}

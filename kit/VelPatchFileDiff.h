// The binary diff of one pair of files.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "kit/VelPatchMatchFinder.h"

#include <cstdint>
#include <vector>

class CXStream;

/// Makes the diff in memory as a list of pieces and writes it as often as wanted. Memory: at its
/// peak up to five times the larger file and some MiB; afterwards the new file and the list.
class VelPatchFileDiff {
public:
    /// Reads and aligns the two files. On failure `problem` says why, in plain words.
    CXResult Make(const CXString& oldPath, const CXString& newPath, CXString& problem);
    /// Bytes that `Write` writes.
    uint64_t GetSize();
    /// Writes the diff; a failure stands in the stream's last error.
    void Write(CXStream& output);

    uint64_t GetNewSize() const { return m_newBytes.size(); }
    /// The new file's bytes, from which the diff's literal bytes come.
    const std::vector<uint8_t>& GetNewBytes() const { return m_newBytes; }

private:
    std::vector<uint8_t> m_newBytes;
    std::vector<VelPatchMatch> m_matches;
    uint64_t m_size = UINT64_MAX; ///< not yet counted
};

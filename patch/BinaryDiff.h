// The binary diff: a flat list of commands that turns an old file into a new one.
//
//   0  u32 skip, u32 length, bytes   pass over `skip` old bytes, write the bytes that follow
//   1  u32 length                    copy `length` bytes from the old file's position
//
// Numbers are big-endian. The old file is only ever read forwards; there is no header, count or
// checksum: a diff ends where its stream ends.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>

class CXStream;

// Command bytes.
inline constexpr uint8_t kBinaryDiffReplace = 0;
inline constexpr uint8_t kBinaryDiffCopy = 1;

/// What a maker of diffs tells, in the order of both files. Positions are bytes from the start.
class BinaryDiff {
public:
    virtual ~BinaryDiff() = default;
    /// The old bytes from oldStart to oldEnd stand in the new file as they are.
    virtual void EmitMatch(uint64_t oldStart, uint64_t oldEnd) = 0;
    /// The old bytes from oldStart to oldEnd give way to the new bytes from newStart to newEnd.
    virtual void EmitDifference(uint64_t oldStart, uint64_t oldEnd, CXStream& newStream,
                                uint64_t newStart, uint64_t newEnd) = 0;
};

/// Writes the commands to a stream that it doesn't own. Runs of 4 GiB and more become several
/// commands. A failure shows in the output's, or the new stream's, last error.
class BinaryDiffStreamWriter : public BinaryDiff {
public:
    explicit BinaryDiffStreamWriter(CXStream& output) : m_output(output) {}
    void EmitMatch(uint64_t oldStart, uint64_t oldEnd) override;
    void EmitDifference(uint64_t oldStart, uint64_t oldEnd, CXStream& newStream, uint64_t newStart,
                        uint64_t newEnd) override;

private:
    CXStream& m_output;
};

/// Applies a whole diff. `oldStream` must read and seek forwards from where it stands, `newStream`
/// write, `diffStream` read and know its size. On failure the result is negative and `message`
/// tells why; what was written stays. It can't be stopped. kCXResultBadData: unknown command.
CXResult ApplyDiffFromStream(CXStream& oldStream, CXStream& newStream, CXStream& diffStream,
                             CXString& message);

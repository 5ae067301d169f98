#include "patch/BinaryDiff.h"

#include "core/CXLog.h"
#include "stream/CXStream.h"

#include <algorithm>

namespace {

constexpr uint64_t kLongestRun = 0xFFFFFFFFU;

} // namespace

void BinaryDiffStreamWriter::EmitMatch(uint64_t oldStart, uint64_t oldEnd) {
    uint64_t left = oldEnd - oldStart;
    do {
        const uint64_t length = std::min(left, kLongestRun);
        m_output.WriteU8(kBinaryDiffCopy);
        m_output.WriteU32(static_cast<uint32_t>(length));
        left -= length;
    } while (left > 0);
}

void BinaryDiffStreamWriter::EmitDifference(uint64_t oldStart, uint64_t oldEnd, CXStream& newStream,
                                            uint64_t newStart, uint64_t newEnd) {
    uint64_t skip = oldEnd - oldStart;
    uint64_t length = newEnd - newStart;
    newStream.Seek(static_cast<int64_t>(newStart), kCXSeekStart);
    do {
        const uint64_t skipNow = std::min(skip, kLongestRun);
        const uint64_t lengthNow = std::min(length, kLongestRun);
        m_output.WriteU8(kBinaryDiffReplace);
        m_output.WriteU32(static_cast<uint32_t>(skipNow));
        m_output.WriteU32(static_cast<uint32_t>(lengthNow));
        if (CXStream::Copy(m_output, newStream, lengthNow) != kCXResultOK) {
            return;
        }
        skip -= skipNow;
        length -= lengthNow;
    } while (skip > 0 || length > 0);
}

CXResult ApplyDiffFromStream(CXStream& oldStream, CXStream& newStream, CXStream& diffStream,
                             CXString& message) {
    message.Clear();
    const uint64_t size = diffStream.GetSize();
    while (diffStream.GetPosition() < size) {
        uint8_t command = 0;
        uint32_t length = 0;
        diffStream.ReadU8(command); // short reads give 0 and show in the stream's error below
        CXResult copied = kCXResultOK;
        if (command == kBinaryDiffReplace) {
            uint32_t skip = 0;
            diffStream.ReadU32(skip);
            diffStream.ReadU32(length);
            // Not tested: a copy that follows a skip past the end fails on its own.
            oldStream.Seek(skip, kCXSeekRelative);
            copied = CXStream::Copy(newStream, diffStream, length);
        } else if (command == kBinaryDiffCopy) {
            diffStream.ReadU32(length);
            copied = CXStream::Copy(newStream, oldStream, length);
        } else {
            message = CXString::Format("ApplyDiffFromStream> unknown command: %d", command);
            return kCXResultBadData;
        }
        if (copied != kCXResultOK) {
            message = CXString::Format("ApplyDiffFromStream> copy(%d) returned %d", length, copied);
            return copied;
        }
        if (diffStream.GetLastError() != kCXResultOK) {
            const CXResult error = diffStream.GetLastError();
            message = CXString::Format("ApplyDiffFromStream> error on input stream: %d", error);
            return error;
        }
    }
    CXLogFormat("ApplyDiffFromStream> total: tell=%d (size=%d)",
                static_cast<uint32_t>(newStream.GetPosition()),
                static_cast<uint32_t>(newStream.GetSize()));
    return kCXResultOK;
}

// The records of the data stream: a size, the data, and the checksum of the finished file. Each
// reader starts where the record before it ended; there is no tag to find one's place again.
#include "core/CXLocalisation.h"
#include "patch/BinaryDiff.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamConcat.h"
#include "stream/CXStreamSubfile.h"
#include "stream/CXStreamTools.h"

namespace {

/// Bytes of a checksum that are read at most, sound ones having 32. Behind the inflater stands
/// whatever a hostile file packs into a thousandth of its size.
constexpr uint32_t kLongestChecksum = 65536;

constexpr uint64_t kDiffReadBuffer = 16384;

CXString DetailWithCode(const char* key, CXResult code) {
    return FormatLocalisedString(key, static_cast<int64_t>(code));
}

/// Writes out what still waits in the file's buffer. Without a stated checksum nothing else would
/// tell that it can't be written.
CXResult WriteOut(CXStream& file) {
    file.Flush();
    return file.GetLastError();
}

/// Checksum of the first `size` bytes as they stand on disk.
CXString ReadBackChecksum(CXStream& file, uint64_t size) {
    file.Seek(0, kCXSeekStart);
    return MD5OfStream(file, size);
}

} // namespace

bool VelPatchTask_ApplyFilePatches::ExtractFilePayload(CXStream& output, CXString& detail) {
    detail.Clear();
    CXStream& data = *m_dataStream;
    uint64_t size = 0;
    data.ReadU64(size);
    CXStreamSubfile window;
    window.Open(data, data.GetPosition(), size);
    if (data.GetLastError() != kCXResultOK) {
        detail = DetailWithCode("$velpatch_task_failed_read_datastreamsize", data.GetLastError());
        return false;
    }
    CXResult copied = CXStream::Copy(output, window, size);
    if (copied == kCXResultOK) {
        copied = WriteOut(output);
    }
    if (copied != kCXResultOK) {
        detail = DetailWithCode("$velpatch_task_copy_failed", copied);
        return false;
    }
    if (data.GetLastError() != kCXResultOK) {
        detail = DetailWithCode("$velpatch_task_error_on_stream", data.GetLastError());
        return false;
    }
    window.Close();
    CXString stated;
    ReadStreamString(data, stated, kLongestChecksum);
    if (data.GetLastError() != kCXResultOK) {
        detail = DetailWithCode("$velpatch_task_failed_read_checksum", data.GetLastError());
        return false;
    }
    const CXString found = ReadBackChecksum(output, size);
    if (!stated.IsEmpty() && found != stated) {
        detail = FormatLocalisedString("$velpatch_task_result_checksum_mismatch", stated, found);
        return false;
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::PerformBinaryDiff(CXStream& source, CXStream& target) {
    CXStream& data = *m_dataStream;
    uint64_t size = 0;
    data.ReadU64(size);
    if (data.GetLastError() != kCXResultOK) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::PerformBinaryDiff> failed to read dataStreamSize. "
            "result %d",
            data.GetLastError());
        return false;
    }
    // A diff is mostly fields of a few bytes, so its window gets a read buffer; what that reads
    // ahead doesn't matter, since closing moves the data stream to the window's end.
    auto window = std::make_unique<CXStreamSubfile>();
    window->Open(data, data.GetPosition(), size);
    CXStreamConcat diff;
    diff.SetOption(kCXStreamOptionReadBuffer, kDiffReadBuffer);
    diff.SetOption(kCXStreamOptionOverlap, 0);
    diff.Append(std::move(window));
    CXString message;
    CXResult applied = ApplyDiffFromStream(source, target, diff, message);
    if (applied == kCXResultOK) {
        applied = WriteOut(target);
    }
    if (applied != kCXResultOK) {
        if (!message.IsEmpty()) {
            Log(message);
        }
        LogFormat(
            "VelPatchTask_ApplyFilePatches::PerformBinaryDiff> failed to apply diff. result %d",
            applied);
        diff.Close();
        return false;
    }
    diff.Close();
    CXString stated;
    ReadStreamString(data, stated, kLongestChecksum);
    if (data.GetLastError() != kCXResultOK) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::PerformBinaryDiff> failed to read checksum. result %d",
            data.GetLastError());
        return false;
    }
    const CXString found = ReadBackChecksum(target, target.GetSize());
    if (!stated.IsEmpty() && found != stated) {
        LogFormat("VelPatchTask_ApplyFilePatches::PerformBinaryDiff> result file checksum mismatch "
                  "[%s, %s]",
                  stated.GetData(), found.GetData());
        return false;
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::SkipBinaryDiff() {
    CXStream& data = *m_dataStream;
    uint64_t size = 0;
    data.ReadU64(size);
    if (data.GetLastError() != kCXResultOK) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::SkipBinaryDiff> failed to read dataStreamSize. result "
            "%d",
            data.GetLastError());
        return false;
    }
    if (data.Skip(size) < size) {
        LogFormat("VelPatchTask_ApplyFilePatches::SkipBinaryDiff> failed to skip. result %d",
                  data.GetLastError());
        return false;
    }
    CXString unused;
    ReadStreamString(data, unused, kLongestChecksum);
    if (data.GetLastError() != kCXResultOK) {
        LogFormat(
            "VelPatchTask_ApplyFilePatches::SkipBinaryDiff> failed to read checksum. result %d",
            data.GetLastError());
        return false;
    }
    return true;
}

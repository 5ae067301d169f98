#include "kit/VelPatchRecordMaker.h"

#include "core/CXMD5.h"
#include "kit/VelPatchFileDiff.h"

#include <zlib.h>

#include <algorithm>

namespace {

// Bytes that an edit of another path costs in the control file more than a create.
constexpr uint64_t kSourceCost = 150;

/// Bytes that these would take in the data file, about: compressed fast, which both sides of a
/// comparison lose by alike.
uint64_t PackedSize(std::span<const uint8_t> bytes) {
    constexpr int kFastLevel = 1;
    constexpr size_t kMostInput = 1 << 20;
    z_stream zlib = {};
    deflateInit(&zlib, kFastLevel);
    std::vector<uint8_t> scratch(1 << 16);
    for (bool isEnd = false; !isEnd;) {
        const auto part = bytes.first(std::min(bytes.size(), kMostInput));
        bytes = bytes.subspan(part.size());
        isEnd = bytes.empty();
        zlib.next_in = const_cast<Bytef*>(part.data()); // zlib only reads
        zlib.avail_in = static_cast<uInt>(part.size());
        do {
            zlib.next_out = scratch.data();
            zlib.avail_out = static_cast<uInt>(scratch.size());
            deflate(&zlib, isEnd ? Z_FINISH : Z_NO_FLUSH);
        } while (zlib.avail_out == 0);
    }
    const uint64_t size = zlib.total_out;
    deflateEnd(&zlib);
    return size;
}

class EditMaker {
public:
    EditMaker(VelPatchPlannedOperation& planned, std::vector<uint8_t> newBytes, unsigned workers)
        : m_planned(planned), m_newBytes(std::move(newBytes)), m_workers(workers) {}

    void Run(VelPatchRecord& record) {
        std::vector<uint8_t> best;
        for (const VelPatchSource& source : m_planned.sources) {
            std::vector<uint8_t> oldBytes;
            record.result = ReadFileToDiff(source.file, oldBytes, record.problem);
            if (record.result != kCXResultOK) {
                return;
            }
            std::vector<uint8_t> diff = MakeFileDiff(oldBytes, m_newBytes, m_workers);
            const uint64_t size = m_planned.sources.size() > 1 || !IsSurelySmall(diff)
                                      ? PackedSize(diff) + SourceCost()
                                      : 0;
            if (size < m_bestSize) {
                m_bestSize = size;
                best = std::move(diff);
                m_planned.operation.sourcePath = source.path;
                m_planned.operation.sourceChecksum =
                    source.isMade ? CXString() : CXMD5::OfBlock(oldBytes.data(), oldBytes.size());
            }
        }
        if (!IsSurelySmall(best) && PackedSize(m_newBytes) <= m_bestSize) {
            TurnIntoCreate(m_planned);
            best = std::move(m_newBytes);
        }
        record.bytes = std::move(best);
    }

private:
    bool IsSurelySmall(const std::vector<uint8_t>& diff) const {
        return diff.size() + SourceCost() <= m_newBytes.size() / 4;
    }
    uint64_t SourceCost() const { return m_planned.IsInPlace() ? 0 : kSourceCost; }

    VelPatchPlannedOperation& m_planned;
    std::vector<uint8_t> m_newBytes;
    unsigned m_workers;
    uint64_t m_bestSize = UINT64_MAX;
};

} // namespace

void TurnIntoCreate(VelPatchPlannedOperation& planned) {
    PatchOperation& operation = planned.operation;
    operation.command = COMMAND_CREATE_FILE;
    if (planned.IsInPlace()) {
        operation.flags |= kPatchFlagMayReplace;
    } else {
        operation.sourcePath.Clear();
        operation.sourceChecksum.Clear();
    }
}

VelPatchRecord MakeRecord(VelPatchPlannedOperation& planned, unsigned workers) {
    VelPatchRecord record;
    std::vector<uint8_t> newBytes;
    record.result = ReadFileToDiff(planned.newFile, newBytes, record.problem);
    if (record.result != kCXResultOK) {
        return record;
    }
    if (newBytes.size() != planned.newSize) {
        record.problem = CXString::Format("'%s' has changed while the patch was made",
                                          planned.newFile.GetData());
        record.result = kCXResultFailed;
        return record;
    }
    planned.operation.destinationChecksum = CXMD5::OfBlock(newBytes.data(), newBytes.size());
    if (planned.operation.command == COMMAND_CREATE_FILE) {
        record.bytes = std::move(newBytes);
    } else {
        EditMaker(planned, std::move(newBytes), workers).Run(record);
    }
    return record;
}

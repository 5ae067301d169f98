#include "kit/VelPatchRecordMaker.h"

#include "core/CXMD5.h"
#include "kit/VelPatchFileDiff.h"
#include "kit/VelPatchParallel.h"

#include <zlib.h>

#include <algorithm>

namespace {

// Bytes that an edit of another path costs in the control file more than a create.
constexpr uint64_t kSourceCost = 150;

/// Deflate at its fastest, piece by piece into the void.
class PackedSizeMeter {
public:
    PackedSizeMeter() { deflateInit(&m_zlib, 1); }
    ~PackedSizeMeter() { deflateEnd(&m_zlib); }
    PackedSizeMeter(const PackedSizeMeter&) = delete;
    PackedSizeMeter& operator=(const PackedSizeMeter&) = delete;

    void Add(std::span<const uint8_t> bytes) {
        m_zlib.next_in = const_cast<Bytef*>(bytes.data()); // zlib only reads
        m_zlib.avail_in = static_cast<uInt>(bytes.size());
        Run(Z_NO_FLUSH);
    }
    uint64_t Finish() {
        Run(Z_FINISH);
        return m_zlib.total_out;
    }

private:
    void Run(int flush) {
        do {
            m_zlib.next_out = m_scratch.data();
            m_zlib.avail_out = static_cast<uInt>(m_scratch.size());
            deflate(&m_zlib, flush);
        } while (m_zlib.avail_out == 0);
    }

    z_stream m_zlib = {};
    std::vector<uint8_t> m_scratch = std::vector<uint8_t>(1 << 16);
};

/// Bytes that these would take in the data file, about: compressed fast, which both sides of a
/// comparison lose by alike. Of many bytes samples speak for the rest.
uint64_t PackedSize(std::span<const uint8_t> bytes) {
    constexpr size_t kPiece = 1 << 16;
    constexpr size_t kMostPieces = 16;
    const size_t pieces = bytes.size() / kPiece + 1;
    const size_t taken = std::min(pieces, kMostPieces);
    PackedSizeMeter meter;
    uint64_t sampled = 0;
    for (size_t i = 0; i < taken; i++) {
        const size_t start = i * pieces / taken * kPiece;
        const auto piece = bytes.subspan(start, std::min(kPiece, bytes.size() - start));
        meter.Add(piece);
        sampled += piece.size();
    }
    const uint64_t packed = meter.Finish();
    return sampled == bytes.size() ? packed
                                   : static_cast<uint64_t>(static_cast<double>(packed) *
                                                           static_cast<double>(bytes.size()) /
                                                           static_cast<double>(sampled));
}

/// A file in memory and its checksum.
struct LoadedFile {
    std::vector<uint8_t> bytes;
    CXString checksum;
    CXResult result = kCXResultOK;
    CXString problem;

    void Load(const CXString& path) {
        result = ReadFileToDiff(path, bytes, problem);
        checksum = CXMD5::OfBlock(bytes.data(), bytes.size());
    }
};

class EditMaker {
public:
    /// `firstSource` is the loaded file of the first source.
    EditMaker(VelPatchPlannedOperation& planned, std::vector<uint8_t> newBytes,
              LoadedFile& firstSource, unsigned workers)
        : m_planned(planned), m_newBytes(std::move(newBytes)), m_old(firstSource),
          m_workers(workers) {}

    void Run(VelPatchRecord& record) {
        std::vector<uint8_t> best;
        for (const VelPatchSource& source : m_planned.sources) {
            if (&source != m_planned.sources.data()) {
                m_old.Load(source.file);
            }
            if (m_old.result != kCXResultOK) {
                record.result = m_old.result;
                record.problem = m_old.problem;
                return;
            }
            std::vector<uint8_t> diff = MakeFileDiff(m_old.bytes, m_newBytes, m_workers);
            const uint64_t size = m_planned.sources.size() > 1 || !IsSurelySmall(diff)
                                      ? PackedSize(diff) + SourceCost()
                                      : 0;
            if (size < m_bestSize) {
                m_bestSize = size;
                best = std::move(diff);
                m_planned.operation.sourcePath = source.path;
                m_planned.operation.sourceChecksum = source.isMade ? CXString() : m_old.checksum;
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
    LoadedFile& m_old;
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
    LoadedFile newFile;
    LoadedFile oldFile;
    const auto load = [&](size_t i) {
        if (i == 0) {
            newFile.Load(planned.newFile);
        } else {
            oldFile.Load(planned.sources.front().file);
        }
    };
    const size_t files = planned.sources.empty() ? 1 : 2;
    RunParallel(files, workers, load);
    record.result = newFile.result;
    record.problem = newFile.problem;
    if (record.result != kCXResultOK) {
        return record;
    }
    if (newFile.bytes.size() != planned.newSize) {
        record.problem = CXString::Format("'%s' has changed while the patch was made",
                                          planned.newFile.GetData());
        record.result = kCXResultFailed;
        return record;
    }
    planned.operation.destinationChecksum = newFile.checksum;
    if (planned.operation.command == COMMAND_CREATE_FILE) {
        record.bytes = std::move(newFile.bytes);
    } else {
        EditMaker(planned, std::move(newFile.bytes), oldFile, workers).Run(record);
    }
    return record;
}

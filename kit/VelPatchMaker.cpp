#include "kit/VelPatchMaker.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchControlWriter.h"
#include "kit/VelPatchDataWriter.h"
#include "kit/VelPatchParallel.h"
#include "kit/VelPatchRecordMaker.h"
#include "kit/VelPatchResultText.h"
#include "stream/CXStreamFile.h"

#include <algorithm>
#include <atomic>

namespace {

// Files are worked on side by side as long as they are small: memory stays below a bound that
// doesn't depend on their number.
constexpr uint64_t kMostBatchBytes = 12 << 20;
// The work on a file of this size is shared out among threads.
constexpr uint64_t kLargeBytes = 2 << 20;
// A created file of this size is not read into memory.
constexpr uint64_t kStreamedSize = 4 << 20;
constexpr size_t kPayloadPiece = 1 << 18;
constexpr const char* kLockName = "velpatch-make.tmp";

/// Bytes that are in memory for an operation.
uint64_t WeightOf(const VelPatchPlannedOperation& planned) {
    uint64_t weight = planned.newSize;
    for (const VelPatchSource& source : planned.sources) {
        weight = std::max(weight, planned.newSize + source.size);
    }
    return planned.HasRecord() ? weight : 0;
}

bool IsStreamed(const VelPatchPlannedOperation& planned) {
    return planned.operation.command == COMMAND_CREATE_FILE && planned.newSize >= kStreamedSize;
}

/// The checksum of the finished file is for a path where something else may stand, and so may be
/// the work of an earlier run. A create never takes such a file for its own, and the file that an
/// operation in place works on is the one that `source-checksum` tells.
bool NeedsDestinationChecksum(const PatchOperation& operation) {
    return operation.command != COMMAND_CREATE_FILE &&
           operation.sourcePath != operation.destinationPath;
}

/// A new file gets the permissions of its source by itself, or what is usual.
bool NeedsPermissions(const VelPatchPlannedOperation& planned) {
    const PatchOperation& operation = planned.operation;
    const bool isFile = operation.command == COMMAND_MOVE_FILE || planned.HasRecord();
    if (!isFile || planned.IsInPlace()) {
        return true;
    }
    const auto source =
        std::find_if(planned.sources.begin(), planned.sources.end(),
                     [&](const VelPatchSource& each) { return each.path == operation.sourcePath; });
    return planned.newMode != (source != planned.sources.end() ? source->mode : kUsualFileMode);
}

} // namespace

CXString VelPatchMaker::GetControlPath() const {
    return CXFileSystem::Join(m_options.outFolder, kPatchControlName);
}

CXString VelPatchMaker::GetDataPath() const {
    return CXFileSystem::Join(m_options.outFolder, kPatchDataName);
}

void VelPatchMaker::Report(const char* text, double fraction, uint64_t bytes) const {
    if (m_progress) {
        m_progress(text, fraction, bytes);
    }
}

CXResult VelPatchMaker::Run(CXString& problem) {
    CXResult result = Plan(problem);
    if (result != kCXResultOK) {
        return result;
    }
    const bool wasThere = CXFileSystem::Exists(m_options.outFolder);
    result = CXFileSystem::CreateDirectories(m_options.outFolder);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be made: %s", m_options.outFolder.GetData(),
                                   ResultText(result));
        return result;
    }
    // Two runs at once would write into each other's files.
    const CXString lockPath = CXFileSystem::Join(m_options.outFolder, kLockName);
    CXStreamFile lock;
    lock.Open(lockPath, kOpenWrite | kOpenCreate | kOpenExclusive);
    if (lock.IsOpen()) {
        result = MakeFiles(problem);
        lock.Close();
        CXFileSystem::DeleteFile(lockPath);
    } else {
        result = CXResultCertainFailure(lock.GetLastError());
        problem = result == kCXResultInUse
                      ? CXString::Format("another run is making a patch in '%s'",
                                         m_options.outFolder.GetData())
                      : CXString::Format("'%s' can't be written: %s", lockPath.GetData(),
                                         ResultText(result));
    }
    if (result != kCXResultOK && !wasThere) {
        CXFileSystem::DeleteDirectory(m_options.outFolder);
    }
    return result;
}

CXResult VelPatchMaker::MakeFiles(CXString& problem) {
    // Under names of their own until they are known to be good.
    const CXString control = CXFileSystem::Join(m_options.outFolder, "patch-control.txt.tmp");
    const CXString data = CXFileSystem::Join(m_options.outFolder, "patch-data.bin.tmp");
    CXResult result = WriteData(data, problem);
    if (result == kCXResultOK) {
        result = WriteControl(control, problem);
    }
    if (result == kCXResultOK) {
        result = CheckUnchanged(problem);
    }
    if (result == kCXResultOK && m_options.check) {
        result = Check(control, data, problem);
    }
    if (result == kCXResultOK) {
        // The data first: a new control file never stands beside older data.
        result = Publish(data, GetDataPath(), problem);
    }
    if (result == kCXResultOK) {
        result = Publish(control, GetControlPath(), problem);
    }
    if (result != kCXResultOK) {
        CXFileSystem::DeleteFile(data);
        CXFileSystem::DeleteFile(control);
        return result;
    }
    Count();
    return kCXResultOK;
}

CXResult VelPatchMaker::Plan(CXString& problem) {
    Report("reading the folders", -1);
    CXResult result = m_newTree.Scan(m_options.newFolder, m_options.ignored, problem);
    if (result == kCXResultOK && !m_options.oldFolder.IsEmpty()) {
        result = m_oldTree.Scan(m_options.oldFolder, m_options.ignored, problem);
    }
    if (result != kCXResultOK) {
        return result;
    }
    const CXString out = CXFileSystem::MakeAbsolute(m_options.outFolder);
    for (const CXString& folder : {m_options.oldFolder, m_options.newFolder}) {
        if (!folder.IsEmpty() && CXFileSystem::IsWithin(CXFileSystem::MakeAbsolute(folder), out)) {
            problem = CXString::Format("'%s' lies in '%s', so the patch would patch itself",
                                       out.GetData(), folder.GetData());
            return kCXResultInvalidArgument;
        }
    }
    const auto tick = [this](double fraction) {
        Report("comparing the folders", fraction);
        return !IsStopped();
    };
    if (!m_plan.Make(m_oldTree, m_newTree, m_options.workers, tick, problem)) {
        return IsStopped() ? kCXResultCancelled : kCXResultUnusable;
    }
    m_operations = m_plan.GetOperations();
    if (m_operations.empty()) {
        problem = m_options.oldFolder.IsEmpty() ? "the new folder is empty"
                                                : "the two folders are the same";
        return kCXResultInvalidArgument;
    }
    return kCXResultOK;
}

CXResult VelPatchMaker::WriteData(const CXString& path, CXString& problem) {
    VelPatchDataWriter data;
    CXResult result = data.Open(path, m_options.level, m_options.workers);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be made: %s", path.GetData(), ResultText(result));
        return result;
    }
    const CXResult written = WriteRecords(data, problem);
    result = data.Close();
    if (written != kCXResultOK && !problem.IsEmpty()) {
        return written;
    }
    result = result == kCXResultOK ? written : result;
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be written: %s", path.GetData(), ResultText(result));
        return result;
    }
    m_dataSize = data.GetSize();
    m_rawSize = data.GetRawSize();
    m_dataChecksum = data.GetChecksum();
    return kCXResultOK;
}

CXResult VelPatchMaker::WriteRecords(VelPatchDataWriter& data, CXString& problem) {
    m_doneSize = 0;
    m_totalSize = 0;
    for (const VelPatchPlannedOperation& planned : m_operations) {
        m_totalSize += planned.HasRecord() ? planned.newSize + 1 : 0;
    }
    for (size_t start = 0; start < m_operations.size();) {
        const size_t end = EndOfBatch(start);
        ReportData();
        const CXResult result = IsStreamed(m_operations[start])
                                    ? WritePayload(data, m_operations[start], problem)
                                    : WriteBatch(data, start, end, problem);
        if (result != kCXResultOK) {
            return result;
        }
        start = end;
    }
    return kCXResultOK;
}

void VelPatchMaker::ReportData() const {
    const auto total = static_cast<double>(std::max<uint64_t>(m_totalSize, 1));
    Report("making the patch", static_cast<double>(m_doneSize) / total, m_doneSize);
}

size_t VelPatchMaker::EndOfBatch(size_t start) const {
    uint64_t weight = 0;
    size_t end = start;
    for (; end < m_operations.size(); end++) {
        weight += WeightOf(m_operations[end]);
        if (end > start && (weight > kMostBatchBytes || IsStreamed(m_operations[end]))) {
            break;
        }
        if (IsStreamed(m_operations[end])) {
            return end + 1;
        }
    }
    return end;
}

CXResult VelPatchMaker::WriteBatch(VelPatchDataWriter& data, size_t start, size_t end,
                                   CXString& problem) {
    std::vector<VelPatchRecord> records(end - start);
    std::atomic<uint64_t> done{m_doneSize};
    const auto make = [&](size_t i) {
        VelPatchPlannedOperation& planned = m_operations[start + i];
        if (planned.HasRecord()) {
            // The others of the batch may be done long before a large one.
            const bool isLarge = WeightOf(planned) >= kLargeBytes;
            records[i] = MakeRecord(planned, isLarge ? m_options.workers : 1);
            done += planned.newSize + 1;
        }
    };
    const bool isComplete = RunParallel(records.size(), m_options.workers, make, [&](size_t) {
        m_doneSize = done;
        ReportData();
        return !IsStopped();
    });
    m_doneSize = done;
    if (!isComplete) {
        problem = "stopped";
        return kCXResultCancelled;
    }
    for (size_t i = 0; i < records.size(); i++) {
        if (!m_operations[start + i].HasRecord()) {
            continue;
        }
        if (records[i].result != kCXResultOK) {
            problem = records[i].problem;
            return records[i].result;
        }
        data.AppendU64(records[i].bytes.size());
        const CXResult result = AppendBytes(data, records[i].bytes, problem);
        if (result != kCXResultOK) {
            return result;
        }
        data.AppendString(m_operations[start + i].operation.destinationChecksum);
        records[i].bytes = std::vector<uint8_t>();
    }
    return kCXResultOK;
}

CXResult VelPatchMaker::WritePayload(VelPatchDataWriter& data, VelPatchPlannedOperation& planned,
                                     CXString& problem) {
    CXStreamFile file;
    file.Open(planned.newFile, kOpenRead);
    data.AppendU64(planned.newSize);
    CXMD5 digest;
    uint64_t left = planned.newSize;
    std::vector<uint8_t> piece(kPayloadPiece);
    while (left > 0 && file.IsOpen()) {
        const uint64_t wanted = std::min<uint64_t>(left, piece.size());
        if (file.Read(piece.data(), wanted) != wanted) {
            break;
        }
        digest.Update(piece.data(), static_cast<size_t>(wanted));
        const CXResult result = AppendBytes(
            data, std::span<const uint8_t>(piece).first(static_cast<size_t>(wanted)), problem);
        if (result != kCXResultOK) {
            return result;
        }
        left -= wanted;
        m_doneSize += wanted;
    }
    if (left > 0) {
        problem = CXString::Format("'%s' can't be read to its end: %s", planned.newFile.GetData(),
                                   ResultText(file.GetLastError()));
        return CXResultCertainFailure(file.GetLastError());
    }
    m_doneSize++;
    planned.operation.destinationChecksum = digest.FinishHex();
    data.AppendString(planned.operation.destinationChecksum);
    return kCXResultOK;
}

CXResult VelPatchMaker::AppendBytes(VelPatchDataWriter& data, std::span<const uint8_t> bytes,
                                    CXString& problem) {
    while (!bytes.empty()) {
        const std::span<const uint8_t> part = bytes.first(std::min(bytes.size(), kPayloadPiece));
        data.Append(part);
        bytes = bytes.subspan(part.size());
        ReportData();
        if (IsStopped()) {
            problem = "stopped";
            return kCXResultCancelled;
        }
        if (data.GetLastError() != kCXResultOK) {
            return data.GetLastError(); // closing the file tells it by its name
        }
    }
    return kCXResultOK;
}

CXResult VelPatchMaker::CheckUnchanged(CXString& problem) const {
    for (const VelPatchTree* tree : {&m_oldTree, &m_newTree}) {
        const CXString changed = tree->FindChanged();
        if (!changed.IsEmpty()) {
            problem =
                CXString::Format("'%s' has changed while the patch was made", changed.GetData());
            return kCXResultFailed;
        }
    }
    return kCXResultOK;
}

CXResult VelPatchMaker::WriteControl(const CXString& path, CXString& problem) {
    std::vector<PatchOperation> operations;
    operations.reserve(m_operations.size());
    for (const VelPatchPlannedOperation& planned : m_operations) {
        operations.push_back(planned.operation);
        if (!NeedsDestinationChecksum(planned.operation)) {
            operations.back().destinationChecksum.Clear();
        }
        if (!NeedsPermissions(planned)) {
            operations.back().destinationPermissions.Clear();
        }
    }
    const CXResult result =
        WriteControlFile(path, operations, static_cast<int64_t>(m_dataSize), m_dataChecksum);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be written: %s", path.GetData(), ResultText(result));
    }
    return result;
}

CXResult VelPatchMaker::Publish(const CXString& temporary, const CXString& path,
                                CXString& problem) {
    CXFileSystem::RecoverBackup(path);
    const CXResult result = CXFileSystem::ReplaceWithBackup(path, temporary);
    if (result != kCXResultOK) {
        problem =
            CXString::Format("'%s' can't be put in place: %s", path.GetData(), ResultText(result));
    }
    return result;
}

void VelPatchMaker::Count() {
    m_summary = VelPatchSummary();
    m_summary.newSize = m_newTree.GetTotalSize();
    m_summary.dataSize = m_dataSize;
    m_summary.rawSize = m_rawSize;
    CXFileAttributes attributes;
    CXFileSystem::GetAttributes(GetControlPath(), true, attributes);
    m_summary.controlSize = attributes.size;
    for (const VelPatchPlannedOperation& planned : m_operations) {
        switch (planned.operation.command) {
        case COMMAND_CREATE_FILE:
            m_summary.creates++;
            break;
        case COMMAND_EDIT_FILE:
            m_summary.edits++;
            break;
        case COMMAND_MOVE_FILE:
            m_summary.moves++;
            break;
        case COMMAND_DELETE_FILE:
            m_summary.deletes++;
            break;
        default:
            m_summary.folders++;
            break;
        }
    }
}

#include "kit/VelPatchMaker.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchControlWriter.h"
#include "kit/VelPatchCountingStream.h"
#include "kit/VelPatchFileDiff.h"
#include "patch/FileChecksum.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"

namespace {

constexpr int kDataLevel = 9;     // made once, fetched by every player
constexpr int kEstimateLevel = 1; // both candidates lose alike
constexpr uint64_t kDataWriteBuffer = 1 << 16;

/// Fails with the stream's error, which may be missing after a short count.
CXResult StreamFailure(const CXStream& stream) {
    return CXResultCertainFailure(stream.GetLastError());
}

/// Bytes that `write` would add to the data file, about.
uint64_t EstimateCompressed(const std::function<void(CXStream&)>& write) {
    VelPatchCountingStream counter;
    StreamProcessorZLibCompress compressor(kEstimateLevel);
    CXStreamProcessorWrapper wrapper(compressor, nullptr, &counter);
    write(wrapper);
    wrapper.Close();
    return counter.GetSize();
}

void WriteBytes(CXStream& output, const std::vector<uint8_t>& bytes) {
    output.Write(bytes.data(), bytes.size());
}

/// A diff that is surely smaller needs no trial; else both forms are compressed.
bool IsDiffSmaller(VelPatchFileDiff& diff) {
    if (diff.GetSize() <= diff.GetNewSize() / 4) {
        return true;
    }
    const uint64_t asDiff = EstimateCompressed([&](CXStream& out) { diff.Write(out); });
    const uint64_t asWhole =
        EstimateCompressed([&](CXStream& out) { WriteBytes(out, diff.GetNewBytes()); });
    return asDiff < asWhole;
}

bool HasRecord(const PatchOperation& operation) {
    return operation.command == COMMAND_CREATE_FILE || operation.command == COMMAND_EDIT_FILE;
}

} // namespace

CXString VelPatchMaker::GetControlPath() const {
    return CXFileSystem::Join(m_options.outFolder, kPatchControlName);
}

CXString VelPatchMaker::GetDataPath() const {
    return CXFileSystem::Join(m_options.outFolder, kPatchDataName);
}

void VelPatchMaker::Report(const char* text, double fraction) const {
    if (m_progress) {
        m_progress(text, fraction);
    }
}

CXResult VelPatchMaker::Run(CXString& problem) {
    CXResult result = Plan(problem);
    if (result != kCXResultOK) {
        return result;
    }
    result = CXFileSystem::CreateDirectories(m_options.outFolder);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be made (result %d)", m_options.outFolder.GetData(),
                                   result);
        return result;
    }
    // Under names of their own until they are known to be good.
    const CXString control = CXFileSystem::Join(m_options.outFolder, "patch-control.txt.tmp");
    const CXString data = CXFileSystem::Join(m_options.outFolder, "patch-data.bin.tmp");
    result = WriteData(data, problem);
    if (result == kCXResultOK) {
        result = WriteControl(control, problem);
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
    CXResult result = m_newTree.Scan(m_options.newFolder, problem);
    if (result == kCXResultOK && !m_options.oldFolder.IsEmpty()) {
        result = m_oldTree.Scan(m_options.oldFolder, problem);
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
    if (!m_plan.Make(m_oldTree, m_newTree, problem)) {
        return kCXResultUnusable;
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
    CXStreamFile file;
    file.Open(path, kOpenRead | kOpenWrite | kOpenCreate | kOpenTruncate);
    if (!file.IsOpen()) {
        problem =
            CXString::Format("'%s' can't be made (result %d)", path.GetData(), file.GetLastError());
        return StreamFailure(file);
    }
    file.SetOption(kCXStreamOptionWriteBuffer, kDataWriteBuffer);
    StreamProcessorZLibCompress compressor(kDataLevel);
    CXStreamProcessorWrapper data(compressor, nullptr, &file);
    uint64_t total = 1;
    for (const VelPatchPlannedOperation& planned : m_operations) {
        total += HasRecord(planned.operation) ? planned.newSize + 1 : 0;
    }
    uint64_t done = 0;
    for (VelPatchPlannedOperation& planned : m_operations) {
        if (IsStopped()) {
            problem = "stopped";
            return kCXResultCancelled;
        }
        if (!HasRecord(planned.operation)) {
            continue;
        }
        Report("writing the patch", static_cast<double>(done) / static_cast<double>(total));
        const CXResult result = WriteRecord(data, planned, problem);
        if (result != kCXResultOK) {
            return result;
        }
        done += planned.newSize + 1;
    }
    data.Close();
    file.SetError(data.GetLastError());
    file.Flush();
    m_dataSize = file.GetSize();
    file.Close();
    if (file.GetLastError() != kCXResultOK) {
        problem = CXString::Format("'%s' can't be written (result %d)", path.GetData(),
                                   file.GetLastError());
        return file.GetLastError();
    }
    const CXResult result = MD5OfFile(path, m_dataChecksum);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be read back (result %d)", path.GetData(), result);
    }
    return result;
}

CXResult VelPatchMaker::WriteRecord(CXStream& data, VelPatchPlannedOperation& planned,
                                    CXString& problem) {
    PatchOperation& operation = planned.operation;
    if (operation.command == COMMAND_CREATE_FILE) {
        return WritePayload(data, planned, problem);
    }
    VelPatchFileDiff diff;
    const CXResult result = diff.Make(planned.oldFile, planned.newFile, problem);
    if (result != kCXResultOK) {
        return result;
    }
    if (IsDiffSmaller(diff)) {
        data.WriteU64(diff.GetSize());
        diff.Write(data);
    } else {
        operation.command = COMMAND_CREATE_FILE;
        if (operation.sourcePath == operation.destinationPath) {
            operation.flags |= kPatchFlagMayReplace;
        } else {
            operation.sourcePath.Clear();
            operation.sourceChecksum.Clear();
        }
        data.WriteU64(diff.GetNewSize());
        WriteBytes(data, diff.GetNewBytes());
    }
    WriteStreamString(data, operation.destinationChecksum);
    if (data.GetLastError() != kCXResultOK) {
        problem =
            CXString::Format("the data file can't be written (result %d)", data.GetLastError());
    }
    return data.GetLastError();
}

CXResult VelPatchMaker::WritePayload(CXStream& data, const VelPatchPlannedOperation& planned,
                                     CXString& problem) {
    CXStreamFile file;
    file.Open(planned.newFile, kOpenRead);
    if (!file.IsOpen() || file.GetSize() != planned.newSize) {
        problem = CXString::Format("'%s' has changed or can't be read (result %d)",
                                   planned.newFile.GetData(), file.GetLastError());
        return StreamFailure(file);
    }
    data.WriteU64(planned.newSize);
    const CXResult result = CXStream::Copy(data, file, planned.newSize);
    WriteStreamString(data, planned.operation.destinationChecksum);
    if (result != kCXResultOK || data.GetLastError() != kCXResultOK) {
        problem = CXString::Format("'%s' can't be put into the data file (result %d)",
                                   planned.newFile.GetData(),
                                   result != kCXResultOK ? result : data.GetLastError());
        return CXResultCertainFailure(result != kCXResultOK ? result : data.GetLastError());
    }
    return kCXResultOK;
}

CXResult VelPatchMaker::WriteControl(const CXString& path, CXString& problem) {
    std::vector<PatchOperation> operations;
    operations.reserve(m_operations.size());
    for (const VelPatchPlannedOperation& planned : m_operations) {
        operations.push_back(planned.operation);
    }
    const CXResult result =
        WriteControlFile(path, operations, static_cast<int64_t>(m_dataSize), m_dataChecksum);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be written (result %d)", path.GetData(), result);
    }
    return result;
}

CXResult VelPatchMaker::Publish(const CXString& temporary, const CXString& path,
                                CXString& problem) {
    CXFileSystem::RecoverBackup(path);
    const CXResult result = CXFileSystem::ReplaceWithBackup(path, temporary);
    if (result != kCXResultOK) {
        problem =
            CXString::Format("'%s' can't be put in place (result %d)", path.GetData(), result);
    }
    return result;
}

void VelPatchMaker::Count() {
    m_summary = VelPatchSummary();
    m_summary.newSize = m_newTree.GetTotalSize();
    m_summary.dataSize = m_dataSize;
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

#include "kit/VelPatchMaker.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchControlWriter.h"
#include "kit/VelPatchDataWriter.h"
#include "kit/VelPatchParallel.h"
#include "kit/VelPatchRecordLine.h"
#include "kit/VelPatchResultText.h"
#include "stream/CXStreamFile.h"

#include <algorithm>

namespace {

constexpr const char* kLockName = "velpatch-make.tmp";

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
    const VelPatchSource* const source = planned.GetSource();
    return planned.newMode != (source != nullptr ? source->mode : kUsualFileMode);
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
    CXString oldProblem;
    CXResult result = kCXResultOK;
    CXResult oldResult = kCXResultOK;
    RunParallel(2, m_options.workers, [&](size_t i) {
        if (i == 0) {
            result = m_newTree.Scan(m_options.newFolder, m_options.ignored, problem);
        } else if (!m_options.oldFolder.IsEmpty()) {
            oldResult = m_oldTree.Scan(m_options.oldFolder, m_options.ignored, oldProblem);
        }
    });
    if (result == kCXResultOK) {
        result = oldResult;
        problem = oldProblem;
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
    CXResult result = data.Open(path, m_options.level);
    if (result != kCXResultOK) {
        problem = CXString::Format("'%s' can't be made: %s", path.GetData(), ResultText(result));
        return result;
    }
    const CXResult written = WriteRecords(data, problem);
    result = data.Close(m_options.workers);
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
    uint64_t total = 0;
    for (const VelPatchPlannedOperation& planned : m_operations) {
        total += planned.HasRecord() ? planned.newSize + 1 : 0;
    }
    const auto tick = [&](uint64_t done) {
        Report("making the patch",
               static_cast<double>(done) / static_cast<double>(std::max<uint64_t>(total, 1)), done);
        return !IsStopped();
    };
    return VelPatchRecordLine(m_operations, data).Run(m_options.workers, tick, problem);
}

CXResult VelPatchMaker::CheckUnchanged(CXString& problem) const {
    const VelPatchTree* const trees[] = {&m_oldTree, &m_newTree};
    CXString changed[2];
    RunParallel(2, m_options.workers, [&](size_t i) { changed[i] = trees[i]->FindChanged(); });
    for (const CXString& path : changed) {
        if (!path.IsEmpty()) {
            problem = CXString::Format("'%s' has changed while the patch was made", path.GetData());
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

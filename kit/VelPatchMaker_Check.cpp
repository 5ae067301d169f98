// The self-check: the patch is applied to a copy of the old folder by the code that players run.
#include "kit/VelPatchMaker.h"

#include "core/CXFileSystem.h"
#include "kit/VelPatchResultText.h"
#include "kit/VelPatchRunner.h"

#include <algorithm>
#include <unordered_map>

namespace {

constexpr const char* kCheckFolderName = "velpatch-check.tmp";

/// Removes the check's folder, read-only folders inside it included.
void RemoveTree(const CXString& folder) {
    VelPatchTree tree;
    CXString ignored;
    if (CXFileSystem::Exists(folder) && tree.Scan(folder, ignored) == kCXResultOK) {
        for (const VelPatchTreeEntry& entry : tree.GetEntries()) {
            if (entry.isFolder && entry.mode != 0 && (entry.mode & 0700) != 0700) {
                CXFileSystem::SetFilePermissions(CXFileSystem::Join(folder, entry.path),
                                                 "posix:0700");
            }
        }
    }
    CXFileSystem::DeleteRecursive(folder);
}

} // namespace

/// Folders get their permissions last, so that a read-only one can be filled.
CXResult VelPatchMaker::CopyOldTree(const CXString& target, CXString& problem) {
    CXResult result = CXFileSystem::CreateDirectories(target);
    const std::vector<VelPatchTreeEntry>& entries = m_oldTree.GetEntries();
    const auto total = static_cast<double>(std::max<uint64_t>(m_oldTree.GetTotalSize(), 1));
    uint64_t done = 0;
    for (size_t i = 0; i < entries.size() && result == kCXResultOK; i++) {
        Report("checking the patch: copying the old folder", static_cast<double>(done) / total);
        if (IsStopped()) {
            problem = "stopped";
            return kCXResultCancelled;
        }
        const CXString path = CXFileSystem::Join(target, entries[i].path);
        result = entries[i].isFolder
                     ? CXFileSystem::CreateDirectory(path)
                     : CXFileSystem::CopyFile(m_oldTree.GetFullPath(i), path, false);
        if (result != kCXResultOK) {
            problem = CXString::Format("'%s' can't be copied to '%s' for the self-check: %s",
                                       m_oldTree.GetFullPath(i).GetData(), path.GetData(),
                                       ResultText(result));
        }
        done += entries[i].size;
    }
    for (size_t i = entries.size(); i-- > 0 && result == kCXResultOK;) {
        if (entries[i].isFolder) {
            CXFileSystem::SetFilePermissions(CXFileSystem::Join(target, entries[i].path),
                                             entries[i].GetPermissions());
        }
    }
    return result;
}

CXResult VelPatchMaker::Check(const CXString& control, const CXString& data, CXString& problem) {
    const CXString folder = CXFileSystem::Join(m_options.outFolder, kCheckFolderName);
    RemoveTree(folder);
    CXResult result = kCXResultOK;
    if (!m_options.oldFolder.IsEmpty()) {
        result = CopyOldTree(folder, problem);
    }
    if (result == kCXResultOK) {
        VelPatchWatcher watcher;
        watcher.status = [&](const TaskStatus& status) {
            if (status.state == kTaskStateMeasured) {
                Report("checking the patch", static_cast<double>(status.fraction));
            }
        };
        watcher.isStopped = m_isStopped;
        TaskStatus last;
        const VelPatchOutcome outcome = RunPatch(control, data, folder, watcher, last);
        if (outcome == VelPatchOutcome::Stopped) {
            problem = "stopped";
            result = kCXResultCancelled;
        } else if (outcome == VelPatchOutcome::Failed) {
            problem = CXString::Format("the patch failed its self-check: %s %s",
                                       last.failureTitle.GetData(), last.failureDetail.GetData());
            result = kCXResultFailed;
        } else {
            result = CompareTarget(folder, problem);
        }
    }
    RemoveTree(folder);
    return result;
}

CXResult VelPatchMaker::CompareTarget(const CXString& target, CXString& problem) {
    VelPatchTree result;
    const CXResult scanned = result.Scan(target, problem);
    if (scanned != kCXResultOK) {
        return scanned;
    }
    std::unordered_map<CXString, size_t, CXStringHasher> wanted;
    const std::vector<VelPatchTreeEntry>& newEntries = m_newTree.GetEntries();
    for (size_t i = 0; i < newEntries.size(); i++) {
        wanted.emplace(m_plan.GetTargetPath(i), i);
    }
    const std::vector<VelPatchTreeEntry>& entries = result.GetEntries();
    const auto total = static_cast<double>(std::max<uint64_t>(result.GetTotalSize(), 1));
    uint64_t done = 0;
    for (size_t i = 0; i < entries.size(); i++) {
        Report("checking the patch: comparing", static_cast<double>(done) / total);
        if (IsStopped()) {
            problem = "stopped";
            return kCXResultCancelled;
        }
        done += entries[i].size;
        const auto at = wanted.find(entries[i].path);
        if (at == wanted.end()) {
            problem = CXString::Format("the patch failed its self-check: it leaves '%s'",
                                       entries[i].path.GetData());
            return kCXResultFailed;
        }
        const VelPatchTreeEntry& expected = newEntries[at->second];
        // What has the usual mode is left to the user's own mask.
        const uint32_t usual = expected.isFolder ? kUsualFolderMode : kUsualFileMode;
        const bool isModeRight = entries[i].mode == expected.mode || expected.mode == usual;
        if (entries[i].isFolder != expected.isFolder || entries[i].size != expected.size ||
            !isModeRight ||
            (!expected.isFolder && result.GetChecksum(i) != m_newTree.GetChecksum(at->second))) {
            problem = CXString::Format("the patch failed its self-check: it makes '%s' wrongly",
                                       entries[i].path.GetData());
            return kCXResultFailed;
        }
        wanted.erase(at);
    }
    if (!wanted.empty()) {
        problem = CXString::Format("the patch failed its self-check: it doesn't make '%s'",
                                   wanted.begin()->first.GetData());
        return kCXResultFailed;
    }
    return kCXResultOK;
}

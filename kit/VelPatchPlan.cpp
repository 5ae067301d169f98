#include "kit/VelPatchPlan.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "patch/PatchPaths.h"

namespace {

CXString FoldCase(absl::string_view text) {
    CXStringEdit folded;
    AppendCaseFolded(folded, text);
    return folded.ToString();
}

} // namespace

bool VelPatchPlan::Make(VelPatchTree& oldTree, VelPatchTree& newTree, CXString& problem) {
    m_old = &oldTree;
    m_new = &newTree;
    m_operations.clear();
    m_warnings.clear();
    if (!IndexOld(problem) || !CheckNewNames(problem) || !MatchTrees(problem) ||
        !PlanFiles(problem)) {
        m_operations.clear();
        return false;
    }
    PlanFolders();
    PlanDeletions();
    PlanReplacedFolders();
    return true;
}

bool VelPatchPlan::IndexOld(CXString& problem) {
    m_oldByPath.clear();
    m_oldByFolded.clear();
    m_oldBySize.clear();
    m_vanishingByName.clear();
    const std::vector<VelPatchTreeEntry>& entries = m_old->GetEntries();
    for (size_t i = 0; i < entries.size(); i++) {
        if (!IsSafeOperationPath(entries[i].path, false)) {
            problem = CXString::Format("'%s' can't be the name of a file in a patch",
                                       entries[i].path.GetData());
            return false;
        }
        m_oldByPath.emplace(entries[i].path, i);
        const auto [at, isFirst] = m_oldByFolded.emplace(FoldCase(entries[i].path), i);
        if (!isFirst) {
            Warn(CXString::Format("the old build has both '%s' and '%s', which are one name to "
                                  "most players' systems",
                                  entries[at->second].path.GetData(), entries[i].path.GetData()));
        }
        if (!entries[i].isFolder && entries[i].size > 0) {
            m_oldBySize[entries[i].size].push_back(i);
        }
    }
    m_newOf.assign(entries.size(), kNone);
    return true;
}

bool VelPatchPlan::CheckNewNames(CXString& problem) {
    std::unordered_map<CXString, size_t, CXStringHasher> seen;
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    for (size_t i = 0; i < entries.size(); i++) {
        const CXString& path = entries[i].path;
        if (!IsSafeOperationPath(path, false)) {
            problem =
                CXString::Format("'%s' can't be the name of a file in a patch", path.GetData());
            return false;
        }
        const auto [at, isFirst] = seen.emplace(FoldCase(path), i);
        if (!isFirst) {
            problem = CXString::Format("'%s' and '%s' differ only in letter case, so players' "
                                       "systems can't hold both",
                                       entries[at->second].path.GetData(), path.GetData());
            return false;
        }
        if (!CXFileSystem::IsValidFileName(entries[i].GetName()) ||
            !IsSafeOperationPath(path, true)) {
            Warn(CXString::Format("'%s' is a name that Windows doesn't allow", path.GetData()));
        }
    }
    return true;
}

bool VelPatchPlan::MatchTrees(CXString& problem) {
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    const std::vector<VelPatchTreeEntry>& oldEntries = m_old->GetEntries();
    m_targetPaths.assign(entries.size(), CXString());
    m_oldOf.assign(entries.size(), kNone);
    std::unordered_map<CXString, size_t, CXStringHasher> newByPath;
    for (size_t i = 0; i < entries.size(); i++) {
        newByPath.emplace(entries[i].path, i);
    }
    for (size_t i = 0; i < entries.size(); i++) {
        // Parents come first, so the parent's spelling in the target is known.
        const CXString parent = CXFileSystem::GetParent(entries[i].path);
        const auto parentAt = newByPath.find(parent);
        const CXString& targetParent =
            parentAt == newByPath.end() ? parent : m_targetPaths[parentAt->second];
        CXString target = CXFileSystem::Join(targetParent, entries[i].GetName());
        size_t oldIndex = kNone;
        if (const auto exact = m_oldByPath.find(target); exact != m_oldByPath.end()) {
            oldIndex = exact->second;
        } else if (const auto folded = m_oldByFolded.find(FoldCase(target));
                   folded != m_oldByFolded.end() && m_newOf[folded->second] == kNone &&
                   newByPath.find(oldEntries[folded->second].path) == newByPath.end()) {
            oldIndex = folded->second;
            Warn(CXString::Format("'%s' differs from '%s' only in letter case and keeps its old "
                                  "name",
                                  target.GetData(), oldEntries[oldIndex].path.GetData()));
            target = oldEntries[oldIndex].path;
        }
        m_targetPaths[i] = target;
        m_oldOf[i] = oldIndex;
        if (oldIndex == kNone) {
            continue;
        }
        m_newOf[oldIndex] = i;
        if (entries[i].isFolder && !oldEntries[oldIndex].isFolder) {
            problem = CXString::Format("'%s' was a file and becomes a folder, which a patch can't "
                                       "tell; give the folder another name",
                                       entries[i].path.GetData());
            return false;
        }
    }
    for (size_t i = 0; i < oldEntries.size(); i++) {
        if (IsVanishing(i) && !oldEntries[i].isFolder) {
            m_vanishingByName[FoldCase(oldEntries[i].GetName())].push_back(i);
        }
    }
    return true;
}

bool VelPatchPlan::PlanFiles(CXString& problem) {
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    for (size_t i = 0; i < entries.size(); i++) {
        if (!entries[i].isFolder && !PlanFile(i, problem)) {
            return false;
        }
    }
    return true;
}

VelPatchPlannedOperation VelPatchPlan::NewOperation(PatchCommand command, size_t newIndex) {
    const VelPatchTreeEntry& entry = m_new->GetEntries()[newIndex];
    VelPatchPlannedOperation planned;
    planned.operation.command = command;
    planned.operation.destinationPath = m_targetPaths[newIndex];
    planned.operation.destinationPermissions = entry.GetPermissions();
    if (!entry.isFolder) {
        planned.operation.destinationChecksum = m_new->GetChecksum(newIndex);
        planned.operation.estimatedEffort = static_cast<int64_t>(entry.size);
        planned.newFile = m_new->GetFullPath(newIndex);
        planned.newSize = entry.size;
    }
    return planned;
}

bool VelPatchPlan::PlanFile(size_t newIndex, CXString& problem) {
    if (m_new->GetChecksum(newIndex).IsEmpty()) {
        problem = CXString::Format("'%s' can't be read", m_new->GetFullPath(newIndex).GetData());
        return false;
    }
    const size_t oldIndex = m_oldOf[newIndex];
    if (oldIndex == kNone) {
        return PlanNewFile(newIndex, problem);
    }
    if (m_old->GetEntries()[oldIndex].isFolder) {
        return true; // after the deletions
    }
    return PlanChangedFile(newIndex, oldIndex, problem);
}

bool VelPatchPlan::PlanChangedFile(size_t newIndex, size_t oldIndex, CXString& problem) {
    const VelPatchTreeEntry& oldEntry = m_old->GetEntries()[oldIndex];
    const VelPatchTreeEntry& newEntry = m_new->GetEntries()[newIndex];
    const CXString& oldChecksum = m_old->GetChecksum(oldIndex);
    if (oldChecksum.IsEmpty()) {
        problem = CXString::Format("'%s' can't be read", m_old->GetFullPath(oldIndex).GetData());
        return false;
    }
    const bool isSame =
        oldEntry.size == newEntry.size && oldChecksum == m_new->GetChecksum(newIndex);
    if (isSame && oldEntry.mode == newEntry.mode) {
        return true;
    }
    // Only the permissions differ: a move onto itself makes a copy that gets them and takes the
    // file's place at the end, so that a rollback finds the old file as it was.
    VelPatchPlannedOperation planned =
        NewOperation(isSame ? COMMAND_MOVE_FILE : COMMAND_EDIT_FILE, newIndex);
    planned.operation.sourcePath = planned.operation.destinationPath;
    planned.operation.sourceChecksum = oldChecksum;
    planned.oldFile = m_old->GetFullPath(oldIndex);
    if (oldEntry.mode == newEntry.mode) {
        planned.operation.destinationPermissions.Clear(); // the new file takes over the old mode
    }
    m_operations.push_back(planned);
    return true;
}

bool VelPatchPlan::PlanNewFile(size_t newIndex, CXString& problem) {
    const size_t moved = FindMoved(newIndex);
    const size_t source = moved != kNone ? moved : FindRenamed(newIndex);
    if (source == kNone) {
        m_operations.push_back(NewOperation(COMMAND_CREATE_FILE, newIndex));
        return true;
    }
    VelPatchPlannedOperation planned =
        NewOperation(moved != kNone ? COMMAND_MOVE_FILE : COMMAND_EDIT_FILE, newIndex);
    planned.operation.sourcePath = m_old->GetEntries()[source].path;
    planned.operation.sourceChecksum = m_old->GetChecksum(source);
    planned.oldFile = m_old->GetFullPath(source);
    if (planned.operation.sourceChecksum.IsEmpty()) {
        problem = CXString::Format("'%s' can't be read", planned.oldFile.GetData());
        return false;
    }
    m_operations.push_back(planned);
    return true;
}

size_t VelPatchPlan::FindMoved(size_t newIndex) {
    const VelPatchTreeEntry& wanted = m_new->GetEntries()[newIndex];
    const auto candidates = m_oldBySize.find(wanted.size);
    if (wanted.size == 0 || candidates == m_oldBySize.end()) {
        return kNone;
    }
    // Any old file will do, since all of them stand until the end; one that goes away and has the
    // same name is what a person would call moved.
    size_t best = kNone;
    int bestRank = -1;
    for (const size_t each : candidates->second) {
        if (m_old->GetChecksum(each) != m_new->GetChecksum(newIndex)) {
            continue;
        }
        const bool isNamesake = m_old->GetEntries()[each].GetName() == wanted.GetName();
        const int rank = (IsVanishing(each) ? 2 : 0) + (isNamesake ? 1 : 0);
        if (rank > bestRank) {
            best = each;
            bestRank = rank;
        }
    }
    return best;
}

size_t VelPatchPlan::FindRenamed(size_t newIndex) const {
    const VelPatchTreeEntry& wanted = m_new->GetEntries()[newIndex];
    const auto candidates = m_vanishingByName.find(FoldCase(wanted.GetName()));
    // Several files of one name (an index of each folder, say) tell nothing.
    if (wanted.size == 0 || candidates == m_vanishingByName.end() ||
        candidates->second.size() != 1) {
        return kNone;
    }
    return candidates->second.front();
}

void VelPatchPlan::PlanFolders() {
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    // Children first and behind all files: a folder may be about to lose its write permission.
    for (size_t i = entries.size(); i-- > 0;) {
        if (!entries[i].isFolder) {
            continue;
        }
        const bool isEmpty = i + 1 == entries.size() ||
                             !CXFileSystem::IsWithin(entries[i].path, entries[i + 1].path);
        const size_t oldIndex = m_oldOf[i];
        const bool isNeeded =
            oldIndex == kNone
                ? isEmpty || (entries[i].mode != 0 && entries[i].mode != kUsualFolderMode)
                : m_old->GetEntries()[oldIndex].mode != entries[i].mode;
        if (isNeeded) {
            m_operations.push_back(NewOperation(COMMAND_CREATE_FOLDER, i));
        }
        if (entries[i].mode != 0 && (entries[i].mode & 0200) == 0) {
            Warn(CXString::Format("folder '%s' isn't writable for its owner: a later patch can't "
                                  "change what it holds",
                                  entries[i].path.GetData()));
        }
    }
}

void VelPatchPlan::PlanDeletions() {
    const std::vector<VelPatchTreeEntry>& entries = m_old->GetEntries();
    const auto add = [&](PatchCommand command, size_t index) {
        VelPatchPlannedOperation planned;
        planned.operation.command = command;
        planned.operation.destinationPath = entries[index].path;
        m_operations.push_back(planned);
    };
    for (size_t i = 0; i < entries.size(); i++) {
        if (!entries[i].isFolder && IsVanishing(i)) {
            add(COMMAND_DELETE_FILE, i);
        }
    }
    for (size_t i = entries.size(); i-- > 0;) {
        if (!entries[i].isFolder) {
            continue;
        }
        const size_t newIndex = m_newOf[i];
        if (newIndex == kNone || !m_new->GetEntries()[newIndex].isFolder) {
            add(COMMAND_DELETE_FOLDER, i);
        }
    }
}

void VelPatchPlan::PlanReplacedFolders() {
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    for (size_t i = 0; i < entries.size(); i++) {
        const size_t oldIndex = m_oldOf[i];
        if (entries[i].isFolder || oldIndex == kNone || !m_old->GetEntries()[oldIndex].isFolder) {
            continue;
        }
        // Source and destination are one, which tells the checks that the path is rightly taken.
        VelPatchPlannedOperation planned = NewOperation(COMMAND_CREATE_FILE, i);
        planned.operation.sourcePath = planned.operation.destinationPath;
        planned.operation.flags = kPatchFlagMayReplace;
        m_operations.push_back(planned);
    }
}

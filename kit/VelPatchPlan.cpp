#include "kit/VelPatchPlan.h"

#include "core/CXFileSystem.h"
#include "core/CXStringEdit.h"
#include "core/CXText.h"
#include "kit/VelPatchParallel.h"
#include "patch/PatchPaths.h"
#include "stream/CXStreamFile.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kReadPiece = 1 << 16;
constexpr size_t kMostSources = 2; // that an edit tries

/// Reads an old file once: is the new file at its path the same, and what is it like?
struct FileReading {
    CXString unreadable; ///< the file that can't be read
    bool isSame = false;
    VelPatchSketch sketch;

    /// `newFile` may be empty. Without a sketch, reading ends at the first difference.
    void Run(const CXString& oldFile, const CXString& newFile, bool isSketched) {
        CXStreamFile older;
        CXStreamFile newer;
        older.Open(oldFile, kOpenRead);
        if (!older.IsOpen()) {
            unreadable = oldFile;
            return;
        }
        isSame = !newFile.IsEmpty();
        if (isSame) {
            newer.Open(newFile, kOpenRead);
            if (!newer.IsOpen()) {
                unreadable = newFile;
                return;
            }
        }
        std::vector<uint8_t> ours(kReadPiece);
        std::vector<uint8_t> theirs(kReadPiece);
        for (uint64_t count = kReadPiece; count == kReadPiece && (isSketched || isSame);) {
            count = older.Read(ours.data(), kReadPiece);
            if (isSame) {
                const uint64_t other = newer.Read(theirs.data(), kReadPiece);
                isSame = other == count &&
                         std::memcmp(ours.data(), theirs.data(), static_cast<size_t>(count)) == 0;
            }
            if (isSketched) {
                sketch.Add({ours.data(), static_cast<size_t>(count)});
            }
        }
        sketch.Finish();
    }
};

/// Runs `work` on all items and passes the ticks on as a share of the way.
bool RunWithTick(size_t count, unsigned workers, const std::function<void(size_t)>& work,
                 const VelPatchPlan::Tick& tick, CXString& problem) {
    const auto share = [&](size_t done) {
        return tick(static_cast<double>(done) / static_cast<double>(count));
    };
    if (!RunParallel(count, workers, work, share)) {
        problem = "stopped";
        return false;
    }
    return true;
}

CXString FoldCase(absl::string_view text) {
    CXStringEdit folded;
    AppendCaseFolded(folded, text);
    return folded.ToString();
}

} // namespace

const VelPatchSource* VelPatchPlannedOperation::GetSource() const {
    const auto named =
        std::find_if(sources.begin(), sources.end(), [this](const VelPatchSource& source) {
            return source.path == operation.sourcePath;
        });
    return named != sources.end() ? &*named : nullptr;
}

bool VelPatchPlan::Make(VelPatchTree& oldTree, VelPatchTree& newTree, unsigned workers,
                        const Tick& tick, CXString& problem) {
    m_old = &oldTree;
    m_new = &newTree;
    m_operations.clear();
    m_warnings.clear();
    if (!IndexOld(problem) || !CheckNewNames(problem) || !MatchTrees(problem) ||
        !CompareFiles(workers, tick, problem) || !SketchNewFiles(workers, tick, problem) ||
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
    m_madeBySize.clear();
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
        if (!IsUTF8(path)) {
            problem = CXString::Format("'%s' is a name that isn't in UTF-8", path.GetData());
            return false;
        }
        const auto [at, isFirst] = seen.emplace(FoldCase(path), i);
        if (!isFirst) {
            problem = CXString::Format("'%s' and '%s' differ only in letter case, so players' "
                                       "systems can't hold both",
                                       entries[at->second].path.GetData(), path.GetData());
            return false;
        }
        if (!IsNameForWindows(entries[i].GetName()) || !IsSafeOperationPath(path, true)) {
            problem = CXString::Format("'%s' is a name that Windows doesn't allow", path.GetData());
            return false;
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
    return true;
}

bool VelPatchPlan::IsAtNewPath(size_t newIndex) const {
    return !m_new->GetEntries()[newIndex].isFolder && m_oldOf[newIndex] == kNone;
}

bool VelPatchPlan::CompareFiles(unsigned workers, const Tick& tick, CXString& problem) {
    const std::vector<VelPatchTreeEntry>& oldEntries = m_old->GetEntries();
    const std::vector<VelPatchTreeEntry>& newEntries = m_new->GetEntries();
    bool isSketched = false;
    for (size_t i = 0; i < newEntries.size(); i++) {
        isSketched = isSketched || (IsAtNewPath(i) && newEntries[i].size > 0);
    }
    std::vector<FileReading> readings(oldEntries.size());
    const auto read = [&](size_t i) {
        const size_t newIndex = m_newOf[i];
        const bool isCompared = newIndex != kNone && !newEntries[newIndex].isFolder &&
                                newEntries[newIndex].size == oldEntries[i].size;
        if (!oldEntries[i].isFolder && (isCompared || isSketched)) {
            readings[i].Run(m_old->GetFullPath(i),
                            isCompared ? m_new->GetFullPath(newIndex) : CXString(), isSketched);
        }
    };
    if (!RunWithTick(oldEntries.size(), workers, read, tick, problem)) {
        return false;
    }
    m_isSame.assign(oldEntries.size(), 0);
    m_similarity = VelPatchSimilarity();
    for (size_t i = 0; i < oldEntries.size(); i++) {
        if (!readings[i].unreadable.IsEmpty()) {
            problem = CXString::Format("'%s' can't be read", readings[i].unreadable.GetData());
            return false;
        }
        m_isSame[i] = readings[i].isSame ? 1 : 0;
        if (isSketched && !oldEntries[i].isFolder) {
            m_similarity.Add(static_cast<uint32_t>(i), readings[i].sketch);
        }
    }
    return true;
}

bool VelPatchPlan::SketchNewFiles(unsigned workers, const Tick& tick, CXString& problem) {
    const std::vector<VelPatchTreeEntry>& entries = m_new->GetEntries();
    m_newSketches.assign(entries.size(), VelPatchSketch());
    std::vector<uint8_t> isUnreadable(entries.size(), 0);
    const auto sketch = [&](size_t i) {
        if (entries[i].isFolder) {
            return;
        }
        if (IsAtNewPath(i) && !m_old->GetEntries().empty()) {
            isUnreadable[i] =
                VelPatchSketch::OfFile(m_new->GetFullPath(i), m_newSketches[i]) != kCXResultOK;
        } else if (m_oldOf[i] == kNone || m_isSame[m_oldOf[i]] == 0) {
            CXStreamFile file;
            file.Open(m_new->GetFullPath(i), kOpenRead);
            isUnreadable[i] = !file.IsOpen();
        }
    };
    if (!RunWithTick(entries.size(), workers, sketch, tick, problem)) {
        return false;
    }
    for (size_t i = 0; i < entries.size(); i++) {
        if (isUnreadable[i] != 0) {
            problem = CXString::Format("'%s' can't be read", m_new->GetFullPath(i).GetData());
            return false;
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
    planned.newMode = entry.mode;
    if (!entry.isFolder) {
        planned.operation.estimatedEffort = static_cast<int64_t>(entry.size);
        planned.newFile = m_new->GetFullPath(newIndex);
        planned.newSize = entry.size;
    }
    return planned;
}

bool VelPatchPlan::PlanFile(size_t newIndex, CXString& problem) {
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
    const bool isSame = m_isSame[oldIndex] != 0;
    if (isSame && oldEntry.mode == newEntry.mode) {
        return true;
    }
    // Only the permissions differ: a move onto itself makes a copy that gets them and takes the
    // file's place at the end, so that a rollback finds the old file as it was.
    VelPatchPlannedOperation planned =
        NewOperation(isSame ? COMMAND_MOVE_FILE : COMMAND_EDIT_FILE, newIndex);
    planned.operation.sourcePath = planned.operation.destinationPath;
    planned.sources.push_back(OldSource(oldIndex));
    if (isSame) {
        planned.operation.sourceChecksum = m_old->GetChecksum(oldIndex);
        planned.operation.destinationChecksum = planned.operation.sourceChecksum;
        if (planned.operation.sourceChecksum.IsEmpty()) {
            problem =
                CXString::Format("'%s' can't be read", planned.sources.front().file.GetData());
            return false;
        }
    }
    if (oldEntry.mode == newEntry.mode) {
        planned.operation.destinationPermissions.Clear(); // the new file takes over the old mode
    }
    m_operations.push_back(planned);
    return true;
}

VelPatchSource VelPatchPlan::OldSource(size_t oldIndex) const {
    const VelPatchTreeEntry& entry = m_old->GetEntries()[oldIndex];
    return {entry.path, m_old->GetFullPath(oldIndex), entry.size, entry.mode, false};
}

VelPatchSource VelPatchPlan::MadeSource(size_t newIndex) const {
    return {m_targetPaths[newIndex], m_new->GetFullPath(newIndex),
            m_new->GetEntries()[newIndex].size, m_new->GetEntries()[newIndex].mode, true};
}

bool VelPatchPlan::PlanNewFile(size_t newIndex, CXString& problem) {
    const uint64_t size = m_new->GetEntries()[newIndex].size;
    const size_t moved = FindMoved(newIndex);
    const size_t twin = moved == kNone ? FindTwin(newIndex) : kNone;
    VelPatchPlannedOperation planned;
    if (moved != kNone || twin != kNone) {
        planned = NewOperation(COMMAND_MOVE_FILE, newIndex);
        planned.sources.push_back(moved != kNone ? OldSource(moved) : MadeSource(twin));
        planned.operation.destinationChecksum = m_new->GetChecksum(newIndex);
        if (moved != kNone) {
            planned.operation.sourceChecksum = planned.operation.destinationChecksum;
        }
    } else {
        const size_t oldCount = m_old->GetEntries().size();
        planned = NewOperation(COMMAND_CREATE_FILE, newIndex);
        for (const auto& each : m_similarity.Find(m_newSketches[newIndex], kMostSources)) {
            planned.operation.command = COMMAND_EDIT_FILE;
            planned.sources.push_back(each.file < oldCount ? OldSource(each.file)
                                                           : MadeSource(each.file - oldCount));
        }
        if (size > 0) {
            m_similarity.Add(static_cast<uint32_t>(oldCount + newIndex), m_newSketches[newIndex]);
        }
    }
    if (!planned.sources.empty()) {
        planned.operation.sourcePath = planned.sources.front().path;
    }
    if (size > 0) {
        m_madeBySize[size].push_back(newIndex);
    }
    if (planned.operation.command == COMMAND_MOVE_FILE &&
        planned.operation.destinationChecksum.IsEmpty()) {
        problem = CXString::Format("'%s' can't be read", planned.newFile.GetData());
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

size_t VelPatchPlan::FindTwin(size_t newIndex) {
    const auto candidates = m_madeBySize.find(m_new->GetEntries()[newIndex].size);
    if (candidates == m_madeBySize.end()) {
        return kNone;
    }
    for (const size_t each : candidates->second) {
        if (m_new->GetChecksum(each) == m_new->GetChecksum(newIndex)) {
            return each;
        }
    }
    return kNone;
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

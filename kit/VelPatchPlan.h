// Decides by which operations one tree becomes another.
#pragma once

#include "core/CXString.h"
#include "kit/VelPatchTree.h"
#include "patch/PatchOperation.h"

#include <cstddef>
#include <unordered_map>
#include <vector>

/// What new folders get on most systems without a word; only other modes are stated.
inline constexpr uint32_t kUsualFolderMode = 0755;

/// An operation and the files at hand that its data is made from.
struct VelPatchPlannedOperation {
    PatchOperation operation;
    CXString oldFile; ///< absolute; what an edit starts from; empty for none
    CXString newFile; ///< absolute; the wanted contents of a create or edit
    uint64_t newSize = 0;
    /// A create stands in for an edit if its data turns out smaller.
    bool MayBecomeCreate() const { return operation.command == COMMAND_EDIT_FILE; }
};

/// The list of operations that turns the old tree into the new one, in an order in which every
/// check of the target passes and everything can be undone as far as the patcher can: new contents
/// first, all made beside the untouched old tree, then folders, then deletions (children before
/// folders), then files that take the place of a folder.
///
/// Players' file systems don't tell letter case apart, so neither does the plan: a name that
/// changes in case only keeps its old spelling.
class VelPatchPlan {
public:
    /// Both trees must outlive the plan; checksums are taken as needed. False when the new tree
    /// can't be reached, with the reason in `problem`.
    bool Make(VelPatchTree& oldTree, VelPatchTree& newTree, CXString& problem);

    const std::vector<VelPatchPlannedOperation>& GetOperations() const { return m_operations; }
    /// Notes for the person who makes the patch.
    const std::vector<CXString>& GetWarnings() const { return m_warnings; }
    /// The path that the new tree's entry gets in a patched target.
    const CXString& GetTargetPath(size_t newIndex) const { return m_targetPaths[newIndex]; }

private:
    static constexpr size_t kNone = SIZE_MAX;

    bool IndexOld(CXString& problem);
    bool CheckNewNames(CXString& problem);
    bool MatchTrees(CXString& problem);
    bool PlanFiles(CXString& problem);
    void PlanFolders();
    void PlanDeletions();
    void PlanReplacedFolders();

    bool PlanFile(size_t newIndex, CXString& problem);
    bool PlanChangedFile(size_t newIndex, size_t oldIndex, CXString& problem);
    bool PlanNewFile(size_t newIndex, CXString& problem);
    /// An old file with the same contents, or kNone.
    size_t FindMoved(size_t newIndex);
    /// A file that disappears and has the same name elsewhere, or kNone.
    size_t FindRenamed(size_t newIndex) const;
    VelPatchPlannedOperation NewOperation(PatchCommand command, size_t newIndex);
    bool IsVanishing(size_t oldIndex) const { return m_newOf[oldIndex] == kNone; }
    void Warn(const CXString& text) { m_warnings.push_back(text); }

    VelPatchTree* m_old = nullptr;
    VelPatchTree* m_new = nullptr;
    std::unordered_map<CXString, size_t, CXStringHasher> m_oldByPath;
    std::unordered_map<CXString, size_t, CXStringHasher> m_oldByFolded;
    std::unordered_map<uint64_t, std::vector<size_t>> m_oldBySize;
    std::unordered_map<CXString, std::vector<size_t>, CXStringHasher> m_vanishingByName;
    std::vector<CXString> m_targetPaths; ///< per new entry
    std::vector<size_t> m_oldOf;         ///< per new entry: the old one at its path, or kNone
    std::vector<size_t> m_newOf;         ///< per old entry
    std::vector<VelPatchPlannedOperation> m_operations;
    std::vector<CXString> m_warnings;
};

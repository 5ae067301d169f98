// Decides by which operations one tree becomes another.
#pragma once

#include "core/CXString.h"
#include "kit/VelPatchSimilarity.h"
#include "kit/VelPatchTree.h"
#include "patch/PatchOperation.h"

#include <cstddef>
#include <functional>
#include <unordered_map>
#include <vector>

/// What new folders and files get on most systems without a word; only other modes are stated.
inline constexpr uint32_t kUsualFolderMode = 0755;
inline constexpr uint32_t kUsualFileMode = 0644;

/// A file that an edit may start from.
struct VelPatchSource {
    CXString path; ///< relative to the target
    CXString file; ///< absolute: the same bytes at hand
    uint64_t size = 0;
    uint32_t mode = 0;   ///< which a file made from it gets if no other is stated
    bool isMade = false; ///< by an operation before: no checksum of it can be asked for
};

/// An operation and the files at hand that its data is made from. The checksums of creates and
/// edits are left to the one who reads the files.
struct VelPatchPlannedOperation {
    PatchOperation operation;
    std::vector<VelPatchSource> sources; ///< of an edit or move: the best first
    CXString newFile;                    ///< absolute; the wanted contents of a create or edit
    uint64_t newSize = 0;
    uint32_t newMode = 0;

    bool HasRecord() const {
        return operation.command == COMMAND_CREATE_FILE || operation.command == COMMAND_EDIT_FILE;
    }
    bool IsInPlace() const { return operation.sourcePath == operation.destinationPath; }
    /// The one of the sources that the operation names, or null.
    const VelPatchSource* GetSource() const;
};

/// The list of operations that turns the old tree into the new one, in an order in which every
/// check of the target passes and everything can be undone as far as the patcher can: new contents
/// first, all made beside the untouched old tree, then folders, then deletions (children before
/// folders), then files that take the place of a folder.
///
/// Players' file systems don't tell letter case apart, so neither does the plan: a name that
/// changes in case only keeps its old spelling.
///
/// A file at a new path becomes a move if an old file, or a new one before it, has its contents,
/// and else an edit of the ones most alike. Files are compared byte by byte and read once.
class VelPatchPlan {
public:
    /// Told how far the comparing is, 0 to 1; false stops it.
    using Tick = std::function<bool(double)>;

    /// Both trees must outlive the plan; checksums are taken as needed. Up to `workers` threads
    /// read files. False when the new tree can't be reached or the tick has stopped it, with the
    /// reason in `problem`.
    bool Make(VelPatchTree& oldTree, VelPatchTree& newTree, unsigned workers, const Tick& tick,
              CXString& problem);

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
    bool CompareFiles(unsigned workers, const Tick& tick, CXString& problem);
    bool SketchNewFiles(unsigned workers, const Tick& tick, CXString& problem);
    bool PlanFiles(CXString& problem);
    void PlanFolders();
    void PlanDeletions();
    void PlanReplacedFolders();

    bool PlanFile(size_t newIndex, CXString& problem);
    bool PlanChangedFile(size_t newIndex, size_t oldIndex, CXString& problem);
    bool PlanNewFile(size_t newIndex, CXString& problem);
    /// An old file with the same contents, or kNone.
    size_t FindMoved(size_t newIndex);
    /// A file at a new path, planned before, with the same contents, or kNone.
    size_t FindTwin(size_t newIndex);
    bool IsAtNewPath(size_t newIndex) const;
    VelPatchSource OldSource(size_t oldIndex) const;
    VelPatchSource MadeSource(size_t newIndex) const;
    VelPatchPlannedOperation NewOperation(PatchCommand command, size_t newIndex);
    bool IsVanishing(size_t oldIndex) const { return m_newOf[oldIndex] == kNone; }
    void Warn(const CXString& text) { m_warnings.push_back(text); }

    VelPatchTree* m_old = nullptr;
    VelPatchTree* m_new = nullptr;
    std::unordered_map<CXString, size_t, CXStringHasher> m_oldByPath;
    std::unordered_map<CXString, size_t, CXStringHasher> m_oldByFolded;
    std::unordered_map<uint64_t, std::vector<size_t>> m_oldBySize;
    std::unordered_map<uint64_t, std::vector<size_t>> m_madeBySize; ///< files at new paths so far
    std::vector<uint8_t> m_isSame;             ///< per old file: the one at its path has its bytes
    std::vector<VelPatchSketch> m_newSketches; ///< per new entry; empty but for files at new paths
    VelPatchSimilarity m_similarity;           ///< numbers: old entries, then new ones
    std::vector<CXString> m_targetPaths;       ///< per new entry
    std::vector<size_t> m_oldOf;               ///< per new entry: the old one at its path, or kNone
    std::vector<size_t> m_newOf;               ///< per old entry
    std::vector<VelPatchPlannedOperation> m_operations;
    std::vector<CXString> m_warnings;
};

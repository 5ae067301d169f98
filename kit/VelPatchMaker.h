// Makes a patch: the control file and the data file that turn one folder into another.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "kit/VelPatchPlan.h"
#include "kit/VelPatchTree.h"

#include <cstdint>
#include <functional>
#include <vector>

class VelPatchDataWriter;

/// Names of the two files in the folder that receives a patch.
inline constexpr const char* kPatchControlName = "patch-control.txt";
inline constexpr const char* kPatchDataName = "patch-data.bin";

/// What a patch holds, for the person who made it.
struct VelPatchSummary {
    uint64_t creates = 0;
    uint64_t edits = 0;
    uint64_t moves = 0;
    uint64_t deletes = 0;
    uint64_t folders = 0; ///< made, changed or deleted
    uint64_t newSize = 0; ///< bytes of the new tree
    uint64_t rawSize = 0; ///< bytes of the data file inflated
    uint64_t dataSize = 0;
    uint64_t controlSize = 0;
};

/// Makes patches. The same two trees give the same bytes. Nothing stands under the final names
/// until everything, the self-check included, has gone well.
class VelPatchMaker {
public:
    struct Options {
        CXString oldFolder; ///< empty: the patch is an installation
        CXString newFolder;
        CXString outFolder;            ///< made if missing
        bool check = true;             ///< apply the patch to a copy of the old folder and compare
        std::vector<CXString> ignored; ///< globs of paths to leave out of both folders
        int level = 9;                 ///< of compression, 1 to 9
        unsigned workers = 1;          ///< threads; the patch is the same with any number
    };
    /// What is being done, how far it is (0 to 1, below 0: not known), and the bytes behind it (0:
    /// not known).
    using Progress = std::function<void(const CXString& text, double fraction, uint64_t bytes)>;

    explicit VelPatchMaker(const Options& options) : m_options(options) {}
    void SetProgress(Progress progress) { m_progress = std::move(progress); }
    /// Looked at between operations: true ends the making with kCXResultCancelled.
    void SetStopTest(std::function<bool()> test) { m_isStopped = std::move(test); }

    /// Makes the patch. On failure nothing new is left in the out folder, and `problem` says why in
    /// plain words.
    CXResult Run(CXString& problem);

    CXString GetControlPath() const;
    CXString GetDataPath() const;
    const std::vector<CXString>& GetWarnings() const { return m_plan.GetWarnings(); }
    const VelPatchSummary& GetSummary() const { return m_summary; }

private:
    CXResult Plan(CXString& problem);
    CXResult MakeFiles(CXString& problem);
    CXResult WriteData(const CXString& path, CXString& problem);
    CXResult WriteRecords(VelPatchDataWriter& data, CXString& problem);
    CXResult CheckUnchanged(CXString& problem) const;
    CXResult WriteControl(const CXString& path, CXString& problem);
    CXResult Check(const CXString& control, const CXString& data, CXString& problem);
    CXResult CopyOldTree(const CXString& target, CXString& problem);
    CXResult CompareTarget(const CXString& target, CXString& problem);
    CXResult Publish(const CXString& temporary, const CXString& path, CXString& problem);
    void Count();
    void Report(const char* text, double fraction, uint64_t bytes = 0) const;
    bool IsStopped() const { return m_isStopped && m_isStopped(); }

    Options m_options;
    Progress m_progress;
    std::function<bool()> m_isStopped;
    VelPatchTree m_oldTree;
    VelPatchTree m_newTree;
    VelPatchPlan m_plan;
    std::vector<VelPatchPlannedOperation> m_operations;
    CXString m_dataChecksum;
    uint64_t m_dataSize = 0;
    uint64_t m_rawSize = 0;
    VelPatchSummary m_summary;
};

// Holds an installed game against a patch: is everything as it must be before, or after, a run?
#pragma once

#include "core/CXString.h"
#include "patch/PatchControl.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

/// Something in the target that isn't as the patch expects it.
struct VelPatchMismatch {
    CXString path; ///< relative to the target, as the patch spells it
    CXString why;
    bool isTolerated = false; ///< the patch goes on if this operation fails
};

/// All findings of one look at a target, in the order of the list. Main thread, with workers below.
class VelPatchVerifier {
public:
    /// The control file must outlive this.
    VelPatchVerifier(const PatchControl& control, const CXString& targetFolder);
    /// Threads that read files; default: as many as the system runs at once.
    void SetWorkers(unsigned workers) { m_workers = workers; }
    /// `progress` gets the fraction done; false stops.
    void SetProgress(std::function<bool(double)> progress) { m_progress = std::move(progress); }

    /// What would stop a run: the checks that the player's program makes, all of them instead of
    /// the first that fails, and what only shows when an operation runs: a source that neither
    /// stands there nor is made by an operation before, a new file in the way of another. False if
    /// stopped.
    bool CheckBefore();
    /// What a finished run has not left behind: files with their checksums and permissions,
    /// folders, and the absence of what it deletes. A file that several operations touch is judged
    /// by the last. False if stopped.
    bool CheckAfter();

    const std::vector<VelPatchMismatch>& GetMismatches() const { return m_mismatches; }
    /// Operations (before) or paths (after) that were looked at.
    size_t GetChecked() const { return m_checked; }
    /// True if one of the findings isn't tolerated.
    bool IsAnyWrong() const;

private:
    /// A finding has an empty text if all is well.
    bool Run(const std::vector<int64_t>& weights,
             const std::function<VelPatchMismatch(size_t)>& check);

    const PatchControl& m_control;
    const CXString m_target;
    unsigned m_workers;
    std::function<bool(double)> m_progress;
    std::vector<VelPatchMismatch> m_mismatches;
    size_t m_checked = 0;
};

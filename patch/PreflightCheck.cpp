// The checks before a patch: can every operation succeed from the state of the target as it
// stands? Reads every source and every occupied destination whole, changes nothing, and stops at
// the first no.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "patch/EffortSum.h"
#include "patch/PreflightRules.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"

bool VelPatchTask_ApplyFilePatches::PreflightCheck(CXString& reason) {
    if (!CheckFreeSpace(reason)) {
        return false;
    }
    EffortSum total;
    for (const PatchOperation& operation : m_control.operations) {
        total.Add(GetCheckWeight(operation));
    }
    EffortSum checked;
    for (const PatchOperation& operation : m_control.operations) {
        if (IsStopRequested()) {
            reason = GetLocalisedString("$velpatch_task_cancelled");
            return false;
        }
        if (total.Get() != 0) {
            SetState(kTaskStateMeasured);
            SetFraction(static_cast<float>(checked.Get()) / static_cast<float>(total.Get()));
        }
        checked.Add(GetCheckWeight(operation));
        const PreflightFinding finding = CheckOperationInTarget(m_targetFolder, operation);
        if (finding.fault != PreflightFault::None) {
            reason = finding.GetReason();
            return false;
        }
    }
    reason.Clear();
    return true;
}

bool VelPatchTask_ApplyFilePatches::CheckFreeSpace(CXString& reason) {
    const int64_t needed = GetNeededFreeBytes(m_control.operations);
    const CXString target = CXFileSystem::GetCanonicalPath(m_targetFolder);
    const std::vector<CXVolume> volumes = CXFileSystem::ListVolumes();
    for (const CXVolume& volume : volumes) {
        const CXString mountPath = CXFileSystem::GetCanonicalPath(volume.mountPath);
        if (CXFileSystem::IsOnVolume(target, mountPath, volumes) && needed > 0 &&
            volume.freeBytes < static_cast<uint64_t>(needed)) {
            reason = GetLocalisedString("$velpatch_task_insufficient_space");
            return false;
        }
    }
    return true;
}

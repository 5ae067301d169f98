// One run of the task, step by step in its order.
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXText.h"
#include "net/CXAddressMask.h"
#include "patch/EffortSum.h"
#include "patch/PreflightRules.h"
#include "patch/VelPatchTask_ApplyFilePatches.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamInflateAhead.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"

namespace {

/// Name of the data file beside the program, and of the one that is downloaded or assembled.
constexpr const char* kDataFileName = "patch.bin";

float FractionOf(int64_t part, int64_t whole) {
    return static_cast<float>(part) / static_cast<float>(whole);
}

/// "patch.bin" in the folder "Resources" beside the program's own folder.
CXString BundledDataPath() {
    const CXString above = CXFileSystem::GetParent(CXFileSystem::GetApplicationFolder());
    return CXFileSystem::Join(CXFileSystem::Join(above, "Resources"), kDataFileName);
}

/// The activity text of a download of `size` bytes.
CXString DownloadText(int64_t size) {
    constexpr int64_t kGiB = 0x40000000;
    constexpr int64_t kMiB = 0x100000;
    if (size < kGiB) {
        const int64_t whole = size <= 0 ? 0 : (size + kMiB - 1) / kMiB;
        return FormatLocalisedString("$velpatch_task_downloading_installation_data_mib", whole);
    }
    const double amount = static_cast<double>(size) / static_cast<double>(kGiB);
    return FormatLocalisedString("$velpatch_task_downloading_installation_data_gib",
                                 CXString::Format("%0.1f", amount));
}

} // namespace

void VelPatchTask_ApplyFilePatches::Proc() {
    ResetRun();
    if (!ReadControl() || !WaitForGo() || !CheckTarget() || !GetDataFile()) {
        return;
    }
    m_rollback = !(OpenDataFile() && RunOperations());
    CleanUp();
}

void VelPatchTask_ApplyFilePatches::ResetRun() {
    m_control = PatchControl();
    m_dataPath.Clear();
    m_dataStream.reset();
    m_inflater.reset();
    m_dataFile.reset();
    m_renames.clear();
    m_createdFolders.clear();
    m_deleteDataAtEnd = false;
    m_rollback = false;
}

bool VelPatchTask_ApplyFilePatches::ReadControl() {
    SetStatus(kTaskStateBusy, 0.0F, GetLocalisedString("$velpatch_task_reading_configuration"));
    for (;;) {
        const CXResult result =
            LoadControlFile(m_controlURI, m_control, [this](const CXString& line) { Log(line); });
        if (result == kCXResultOK) {
            return true;
        }
        if (result == kCXResultNotFound) {
            const CXString text = GetLocalisedString("$velpatch_task_newer_patcher_required");
            FinishFailed(text, CXString(), text);
            return false;
        }
        const CXString title = GetLocalisedString("$velpatch_task_failed_read_source_data");
        if (!AskRetry(nullptr, title, MaskAddress(m_controlURI.ToString()))) {
            SetStatus(kTaskStateFailed, 1.0F, CXString());
            LogFailure();
            return false;
        }
    }
}

bool VelPatchTask_ApplyFilePatches::WaitForGo() {
    SetStatus(kTaskStateReady, 0.0F, GetLocalisedString("$velpatch_task_ready_to_install"));
    m_goEvent.Wait();
    if (IsStopRequested()) {
        FinishFailed(GetLocalisedString("$velpatch_task_patch_cancelled"), CXString(), CXString());
        return false;
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::CheckTarget() {
    SetStatus(kTaskStateBusy, 0.0F, GetLocalisedString("$velpatch_task_checking_target"));
    CXString reason;
    if (!PreflightCheck(reason)) {
        FinishFailed(GetLocalisedString("$velpatch_task_patch_not_viable"), reason, CXString());
        return false;
    }
    EnsureParentFolders(CXFileSystem::Join(m_targetFolder, "dummy.txt"));
    return true;
}

bool VelPatchTask_ApplyFilePatches::GetDataFile() {
    if (m_dataURI.IsEmpty()) {
        m_dataPath = BundledDataPath();
        return true;
    }
    if (!EqualsNoCase(m_dataURI.scheme, "file")) {
        return DownloadDataFile();
    }
    m_dataPath = m_dataURI.ToFilePath();
    if (!CXFileSystem::Exists(m_dataPath)) {
        FinishFailed(FormatLocalisedString("$velpatch_task_missing_data", m_dataPath), CXString(),
                     CXString());
        return false;
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::DownloadDataFile() {
    const CXString baseText = DownloadText(m_control.dataSize);
    SetStatus(kTaskStateMeasured, 0.0F, baseText);
    const CXString folder = CXFileSystem::GetParent(m_targetFolder);
    m_dataPath = CXFileSystem::CreateUniqueFileName(&folder, kDataFileName);
    if (m_dataPath.IsEmpty()) {
        FinishFailed(FormatLocalisedString("$velpatch_task_failed_to_create_temp_under", folder),
                     CXString(), CXString());
        return false;
    }
    m_deleteDataAtEnd = true;
    const CXHTTPProgress progress = [this, &baseText](const CXStreamProgressCallbackData& data) {
        return FormatTransferStatus(baseText, data);
    };
    bool resume = false;
    CXStringEdit title;
    CXStringEdit detail;
    while (!DownloadPatchData(m_dataURI, m_dataPath, progress, title, detail, resume)) {
        if (!AskRetry(nullptr, title.ToString(), detail.ToString())) {
            SetStatus(kTaskStateFailed, 1.0F, CXString());
            LogFailure();
            Log("Deleting downloaded installation data file.");
            DeletePatiently(m_dataPath);
            return false;
        }
        resume = true;
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::OpenDataFile() {
    const CXString checking = GetLocalisedString("$velpatch_task_checking_payload_data");
    SetStatus(kTaskStateMeasured, 0.0F, checking);
    EffortSum total;
    for (const PatchOperation& operation : m_control.operations) {
        total.Add(operation.estimatedEffort);
    }
    m_totalEffort = total.Get() == 0 ? 1 : total.Get();
    m_doneEffort = 0;
    // Without a data address, and only then, a missing file means discs.
    if (m_dataURI.IsEmpty() && !CXFileSystem::Exists(m_dataPath) && !AssembleDataFile()) {
        return false;
    }

    m_dataFile = std::make_unique<CXStreamFile>();
    m_dataFile->Open(m_dataPath, kOpenRead);
    if (!m_dataFile->IsOpen()) {
        return Fail(
            FormatLocalisedString("$velpatch_task_install_failed_read_src_data", m_dataPath));
    }
    const uint64_t size = m_dataFile->GetSize();
    if (m_control.dataSize > 0 && static_cast<uint64_t>(m_control.dataSize) != size) {
        return Fail(FormatLocalisedString("$velpatch_task_install_failed_wrong_size",
                                          m_control.dataSize, static_cast<int64_t>(size)));
    }
    if (!m_control.dataChecksum.IsEmpty()) {
        SetState(kTaskStateBusy);
        SetText(checking);
        if (MD5OfStream(*m_dataFile, size) != m_control.dataChecksum) {
            return Fail(GetLocalisedString("$velpatch_task_installation_data_checksum"));
        }
        m_dataFile->Seek(0, kCXSeekStart);
    }
    m_inflater = std::make_unique<StreamProcessorZLibDecompress>();
    m_dataStream = std::make_unique<CXStreamInflateAhead>(*m_inflater, *m_dataFile);
    SetState(kTaskStateMeasured);
    SetText(GetLocalisedString("$velpatch_task_installing"));
    return true;
}

bool VelPatchTask_ApplyFilePatches::AssembleDataFile() {
    const CXString folder = CXFileSystem::GetParent(m_targetFolder);
    m_dataPath = CXFileSystem::CreateUniqueFileName(&folder, kDataFileName);
    if (m_dataPath.IsEmpty()) {
        return Fail(FormatLocalisedString("$velpatch_task_failed_to_create_temp_under", folder));
    }
    SetStatus(kTaskStateMeasured, 0.0F, GetLocalisedString("$velpatch_task_copying_payload_data"));
    m_deleteDataAtEnd = true;
    // The half is added on top, so that the assembly takes the first third of the bar.
    const int64_t half = m_totalEffort / 2;
    EffortSum total(m_totalEffort);
    total.Add(half);
    m_totalEffort = total.Get();
    m_doneEffort = half;
    const float share = FractionOf(half, m_totalEffort);
    CXString volumeFolder = CXFileSystem::GetApplicationFolder();
    const bool assembled = AssembleVolumes(
        m_dataPath, volumeFolder, CXString(),
        [this, share](float fraction) { SetFraction(fraction * share); }, m_discPrompt,
        [this] { return IsStopRequested(); });
    if (!assembled) {
        return Fail(
            FormatLocalisedString("$velpatch_task_failed_copying_payload_data", m_dataPath));
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::RunOperations() {
    EffortSum done(m_doneEffort);
    for (const PatchOperation& operation : m_control.operations) {
        if (IsStopRequested()) {
            Log("VelPatchTask_ApplyFilePatches::Proc> patch cancelled by user");
            return false;
        }
        m_rangeStart = FractionOf(done.Get(), m_totalEffort);
        done.Add(operation.estimatedEffort);
        m_rangeEnd = FractionOf(done.Get(), m_totalEffort);
        if (!RunOperation(operation)) {
            if (!operation.IsFailureIgnored()) {
                Log("VelPatchTask_ApplyFilePatches::Proc> (patch failed)");
                return false;
            }
            Log("VelPatchTask_ApplyFilePatches::Proc> (failure ignored)");
        }
        m_doneEffort = done.Get();
        SetFraction(m_rangeEnd);
    }
    SetStatus(kTaskStateBusy, 1.0F, GetLocalisedString("$velpatch_task_finalising_installation"));
    if (!FinalisePatchOperations()) {
        Log("VelPatchTask_ApplyFilePatches::Proc> failed to finalise patch");
        return Fail(GetLocalisedString("$velpatch_task_failed_unable_move_final"));
    }
    return true;
}

bool VelPatchTask_ApplyFilePatches::RunOperation(const PatchOperation& operation) {
    CXString source;
    if (!operation.sourcePath.IsEmpty()) {
        source = InTarget(operation.sourcePath);
    }
    const CXString destination = InTarget(operation.destinationPath);
    LogFormat("cmd:%d %s", static_cast<uint32_t>(operation.command), destination.GetData());
    CXString offender;
    if (OperationLeadsOutside(m_targetFolder, operation, offender)) {
        return Fail(FormatLocalisedString("$velpatch_task_failed_unexpected_file", offender));
    }
    switch (operation.command) {
    case COMMAND_CREATE_FILE:
        return CreateFile(operation, destination);
    case COMMAND_DELETE_FILE:
    case COMMAND_DELETE_FOLDER:
        m_renames.push_back({destination, CXString()});
        return true;
    case COMMAND_EDIT_FILE:
    case COMMAND_MOVE_FILE:
        return ChangeFile(operation, source, destination);
    case COMMAND_CREATE_FOLDER:
        return CreateFolder(operation, destination);
    case COMMAND_NONE:
        break;
    }
    LogFormat("VelPatchTask_ApplyFilePatches::Proc> unknown command %d",
              static_cast<uint32_t>(operation.command));
    return Fail(GetLocalisedString("$velpatch_task_failed_unable_read_installation_data"));
}

void VelPatchTask_ApplyFilePatches::CleanUp() {
    // An open data file could not be deleted on every system.
    m_dataStream.reset();
    m_inflater.reset();
    m_dataFile.reset();
    SetStatus(kTaskStateBusy, 1.0F,
              GetLocalisedString(m_rollback ? "$velpatch_task_rolling_back"
                                            : "$velpatch_task_cleaning_up"));
    if (m_rollback) {
        LogFormat("VelPatchTask_ApplyFilePatches::Proc> rolling back %d changes", m_renames.size());
        CancelCleanupOperations();
    }
    DeleteTemporaryPatchFilesDirectory();
    if (m_deleteDataAtEnd) {
        LogFormat("Deleting downloaded installation data file: %s", m_dataPath.GetData());
        const CXResult result = DeletePatiently(m_dataPath);
        if (result != kCXResultOK) {
            LogFormat("Failed to delete patch installation file (result %d.)", result);
        }
    }
    if (m_rollback) {
        DeleteDirectoriesCreatedDuringPatchAttempt();
    }
    SetStatus(m_rollback ? kTaskStateFailed : kTaskStateFinished, 1.0F, CXString());
}

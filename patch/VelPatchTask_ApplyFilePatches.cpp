// The task's life, its status, its log and its prompts.
#include "patch/VelPatchTask_ApplyFilePatches.h"

#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXLog.h"
#include "core/CXTime.h"
#include "patch/DeleteWithAutoRetry.h"
#include "stream/CXStreamFile.h"
#include "stream/StreamProcessorZLib.h"

#include <algorithm>

namespace {

/// How often a waiting prompt looks for its answer.
constexpr uint32_t kPromptPollMilliseconds = 100;

} // namespace

VelPatchTask_ApplyFilePatches::VelPatchTask_ApplyFilePatches()
    : CXThread("VelPatchTask_ApplyFilePatches") {}

VelPatchTask_ApplyFilePatches::~VelPatchTask_ApplyFilePatches() {
    // The non-waiting stop wakes a task that waits for the go; then the thread is joined before
    // any member dies.
    VelPatchTask_ApplyFilePatches::Stop();
    CXThread::Stop();
    m_dataStream.reset();
    m_dataFile.reset();
    WriteLogFile();
}

void VelPatchTask_ApplyFilePatches::Prepare(const CXURI& controlURI, const CXURI& dataURI) {
    m_controlURI = controlURI;
    m_dataURI = dataURI;
    const CXString text = GetLocalisedString("$velpatch_task_loading_installation_data");
    const CXCriticalSectionGuard guard(m_lock);
    m_status.state = kTaskStateReady;
    m_status.statusText = text;
}

void VelPatchTask_ApplyFilePatches::SetDiscPrompt(PatchDiscPrompt prompt) {
    m_discPrompt = std::move(prompt);
}

bool VelPatchTask_ApplyFilePatches::Begin(const CXString& targetFolder) {
    Stop();
    CXThread::Stop();
    m_goEvent.Reset();
    if (targetFolder.IsEmpty()) {
        FinishFailed(FormatLocalisedString("$velpatch_task_invalid_input_filepath", targetFolder),
                     CXString(), GetLocalisedString("$velpatch_task_invalid_target"));
        return false;
    }
    m_targetFolder = CXFileSystem::StripTrailingSeparators(targetFolder);
    Start();
    return true;
}

void VelPatchTask_ApplyFilePatches::Go() {
    m_goEvent.Set();
}

void VelPatchTask_ApplyFilePatches::Stop() {
    if (IsRunning()) {
        RequestStop();
    }
    m_goEvent.Set();
}

void VelPatchTask_ApplyFilePatches::GetStatus(TaskStatus& out) {
    const CXCriticalSectionGuard guard(m_lock);
    out = m_status;
}

void VelPatchTask_ApplyFilePatches::AnswerPrompt(bool retry) {
    const CXCriticalSectionGuard guard(m_lock);
    if (m_status.state == kTaskStatePrompt) {
        m_status.state = retry ? kTaskStateRetry : kTaskStateFailed;
    }
}

CXString VelPatchTask_ApplyFilePatches::GetLogFilePath() {
    return CXFileSystem::Join(CXFileSystem::GetTempPath(), "velpatch-log.txt");
}

void VelPatchTask_ApplyFilePatches::WriteLogFile() {
    CXStreamFile file;
    file.Open(GetLogFilePath(), kOpenWrite | kOpenCreate | kOpenTruncate);
    if (file.IsOpen()) {
        const CXCriticalSectionGuard guard(m_lock);
        file.Write(m_log.GetData(), m_log.GetLength());
    }
}

// ---- Status ----

void VelPatchTask_ApplyFilePatches::SetStatus(uint32_t state, float fraction,
                                              const CXString& text) {
    const CXCriticalSectionGuard guard(m_lock);
    m_status.state = state;
    m_status.fraction = fraction;
    m_status.statusText = text;
}

void VelPatchTask_ApplyFilePatches::SetState(uint32_t state) {
    const CXCriticalSectionGuard guard(m_lock);
    m_status.state = state;
}

void VelPatchTask_ApplyFilePatches::SetText(const CXString& text) {
    const CXCriticalSectionGuard guard(m_lock);
    m_status.statusText = text;
}

void VelPatchTask_ApplyFilePatches::SetFraction(float fraction) {
    // Stated efforts come from outside and may be negative or absurd; the bar's range may not.
    const float inRange = fraction >= 0.0F ? std::min(fraction, 1.0F) : 0.0F;
    const CXCriticalSectionGuard guard(m_lock);
    m_status.fraction = inRange;
}

void VelPatchTask_ApplyFilePatches::SetFailure(const CXString& title, const CXString& detail) {
    const CXCriticalSectionGuard guard(m_lock);
    m_status.failureTitle = title;
    m_status.failureDetail = detail;
}

void VelPatchTask_ApplyFilePatches::FinishFailed(const CXString& title, const CXString& detail,
                                                 const CXString& text) {
    SetFailure(title, detail);
    SetStatus(kTaskStateFailed, 1.0F, text);
    LogFailure();
}

bool VelPatchTask_ApplyFilePatches::Fail(const CXString& title, const CXString& detail) {
    SetFailure(title, detail);
    LogFailure();
    return false;
}

void VelPatchTask_ApplyFilePatches::LogFailure() {
    TaskStatus status;
    GetStatus(status);
    LogFormat("STATE_FAILED - %s - %s - %s", status.statusText.GetData(),
              status.failureTitle.GetData(), status.failureDetail.GetData());
}

void VelPatchTask_ApplyFilePatches::AppendLog(const CXString& text) {
    const CXCriticalSectionGuard guard(m_lock);
    m_log.Append(text);
    m_log.AppendByte('\n');
}

void VelPatchTask_ApplyFilePatches::Log(const CXString& text) {
    CXLog(text);
    AppendLog(text);
}

// ---- Prompts and deletion ----

bool VelPatchTask_ApplyFilePatches::AskRetry(const PatchOperation* operation, const CXString& title,
                                             const CXString& detail) {
    if (IsStopRequested() || (operation != nullptr && operation->IsFailureIgnored())) {
        return false;
    }
    std::unique_lock<CXCriticalSection> guard(m_lock);
    const uint32_t remembered = m_status.state;
    m_status.state = kTaskStatePrompt;
    if (!title.IsEmpty()) {
        m_status.failureTitle = title;
        m_status.failureDetail = detail;
    }
    while (m_status.state == kTaskStatePrompt && !IsStopRequested()) {
        guard.unlock();
        CXSleep(kPromptPollMilliseconds);
        guard.lock();
    }
    const bool retry = m_status.state == kTaskStateRetry && !IsStopRequested();
    m_status.state = remembered;
    return retry;
}

CXResult VelPatchTask_ApplyFilePatches::DeletePatiently(const CXString& path) {
    return DeleteWithAutoRetry(path, [this](const CXString& line) { Log(line); });
}

#include "patch/VelPatchTask_Uninstall.h"

#include "core/CXFileSystem.h"
#include "core/CXTime.h"
#include "patch/UninstallList.h"
#include "stream/CXStreamFile.h"

#include <atomic>
#include <mutex>

namespace {

/// How often a waiting prompt looks for its answer.
constexpr uint32_t kPromptPollMilliseconds = 100;
/// Programs that have just ended often hold files a moment longer.
std::atomic<uint32_t> g_retryPauseMilliseconds{2000};

} // namespace

uint32_t SetUninstallRetryPause(uint32_t milliseconds) {
    return g_retryPauseMilliseconds.exchange(milliseconds, std::memory_order_relaxed);
}

VelPatchTask_Uninstall::VelPatchTask_Uninstall(const CXString& applicationName)
    : CXThread("VelPatchTask_Uninstall"), m_applicationName(applicationName) {}

VelPatchTask_Uninstall::~VelPatchTask_Uninstall() {
    // Before any member dies: the thread uses them.
    CXThread::Stop();
}

bool VelPatchTask_Uninstall::Begin(const CXString& targetFolder) {
    if (IsRunning()) {
        return false;
    }
    m_targetFolder = targetFolder;
    return true;
}

void VelPatchTask_Uninstall::Go() {
    if (IsRunning()) {
        return;
    }
    {
        // Before the thread: a look at the status must not find a task that has nothing to do.
        const CXCriticalSectionGuard guard(m_lock);
        m_status = TaskStatus();
        m_status.state = kTaskStateBusy;
        m_status.statusText = CXString::Format("Uninstalling%s", m_applicationName.GetData());
    }
    Start();
}

void VelPatchTask_Uninstall::Stop() {
    RequestStop();
}

void VelPatchTask_Uninstall::GetStatus(TaskStatus& out) {
    const CXCriticalSectionGuard guard(m_lock);
    out = m_status;
}

void VelPatchTask_Uninstall::AnswerPrompt(bool retry) {
    const CXCriticalSectionGuard guard(m_lock);
    if (m_status.state == kTaskStatePrompt) {
        m_status.state = retry ? kTaskStateRetry : kTaskStateFailed;
    }
}

void VelPatchTask_Uninstall::Proc() {
    DeleteListedFiles();
    for (bool isFirst = true;; isFirst = false) {
        const CXResult result = CXFileSystem::DeleteRecursive(m_targetFolder);
        if (result == kCXResultOK) {
            break;
        }
        if (isFirst) {
            CXSleep(g_retryPauseMilliseconds.load(std::memory_order_relaxed));
        } else if (!AskRetry(result)) {
            break;
        }
    }
    const CXCriticalSectionGuard guard(m_lock);
    m_status.state = kTaskStateFinished;
    m_status.fraction = 1.0F;
    m_status.statusText = "Done.";
}

void VelPatchTask_Uninstall::DeleteListedFiles() const {
    CXStreamFile list;
    if (!m_targetFolder.IsEmpty()) {
        list.Open(GetUninstallListPath(m_targetFolder), kOpenRead);
    }
    if (list.IsOpen()) {
        ReadUninstallList(list, [](const CXString& path) { CXFileSystem::DeleteFile(path); });
    }
}

bool VelPatchTask_Uninstall::AskRetry(CXResult result) {
    std::unique_lock<CXCriticalSection> guard(m_lock);
    m_status.state = kTaskStatePrompt;
    m_status.failureTitle = "Failed to delete some files.";
    m_status.failureDetail = CXString::Format("Result %d.", result);
    while (m_status.state == kTaskStatePrompt && !IsStopRequested()) {
        guard.unlock();
        CXSleep(kPromptPollMilliseconds);
        guard.lock();
    }
    if (m_status.state != kTaskStateRetry) {
        return false;
    }
    m_status.state = kTaskStateBusy;
    m_status.failureTitle.Clear();
    m_status.failureDetail.Clear();
    return true;
}

#include "patch/VelPatchTask_ApplyFileDiff.h"

VelPatchTask_ApplyFileDiff::VelPatchTask_ApplyFileDiff(std::unique_ptr<CXStream> oldStream,
                                                       std::unique_ptr<CXStream> diffStream,
                                                       std::unique_ptr<CXStream> newStream,
                                                       uint64_t totalSize)
    : CXThread("VelPatchTask_ApplyFileDiff"), m_oldStream(std::move(oldStream)),
      m_diffStream(std::move(diffStream)), m_newStream(std::move(newStream)),
      m_totalSize(totalSize) {}

VelPatchTask_ApplyFileDiff::~VelPatchTask_ApplyFileDiff() {
    // Before any member dies: the thread uses them.
    CXThread::Stop();
}

bool VelPatchTask_ApplyFileDiff::Begin(const CXString& /*targetFolder*/) {
    return !IsRunning();
}

void VelPatchTask_ApplyFileDiff::Go() {
    Start();
}

void VelPatchTask_ApplyFileDiff::Stop() {
    if (IsRunning()) {
        RequestStop();
    }
}

void VelPatchTask_ApplyFileDiff::GetStatus(TaskStatus& out) {
    const CXCriticalSectionGuard guard(m_lock);
    out = m_status;
}

void VelPatchTask_ApplyFileDiff::RunCommand() {
    uint8_t command = 0;
    uint32_t skip = 0;
    uint32_t length = 0;
    m_diffStream->ReadU8(command);
    if (command == 0) {
        m_diffStream->ReadU32(skip);
        m_diffStream->ReadU32(length);
        m_oldStream->Seek(skip, kCXSeekRelative);
        CXStream::Copy(*m_newStream, *m_diffStream, length);
    } else if (command == 1) {
        m_diffStream->ReadU32(length);
        CXStream::Copy(*m_newStream, *m_oldStream, length);
    }
}

void VelPatchTask_ApplyFileDiff::Proc() {
    {
        const CXCriticalSectionGuard guard(m_lock);
        m_status.state = kTaskStateMeasured;
        m_status.fraction = 0.0F;
        m_status.statusText = "Installing...";
    }
    const uint64_t size = m_diffStream->GetSize();
    uint64_t position = m_diffStream->GetPosition();
    while (position < size) {
        RunCommand();
        const uint64_t reached = m_diffStream->GetPosition();
        if (reached <= position) {
            break; // a device that gives no more bytes must not keep the thread for ever
        }
        position = reached;
        const float fraction = m_totalSize == 0
                                   ? 1.0F
                                   : static_cast<float>(static_cast<double>(position) /
                                                        static_cast<double>(m_totalSize));
        const CXCriticalSectionGuard guard(m_lock);
        if (fraction > m_status.fraction) {
            m_status.fraction = fraction;
        }
    }
    m_newStream->Flush();
    const CXCriticalSectionGuard guard(m_lock);
    m_status.state = kTaskStateFinished;
    m_status.fraction = 1.0F;
    m_status.statusText.Clear();
}

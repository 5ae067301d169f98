#include "stream/CXStreamProcessorWrapper.h"

#include "stream/CXStreamStaticBuffer.h"

#include <algorithm>

namespace {

/// From this many bytes on the processor is asked to put its output straight into the caller's
/// memory, which saves a copy and lets it work in longer runs than its own output area allows.
constexpr uint64_t kDirectFrom = 1024;

} // namespace

CXStreamProcessorWrapper::CXStreamProcessorWrapper(StreamProcessor& processor, CXStream* source,
                                                   CXStream* destination)
    : m_processor(&processor), m_source(source), m_destination(destination) {
    m_flags = kCXStreamIsOpen | kCXStreamSeekable | (source != nullptr ? kCXStreamReadable : 0);
}

CXStreamProcessorWrapper::~CXStreamProcessorWrapper() {
    CXStreamProcessorWrapper::Close();
}

void CXStreamProcessorWrapper::Close() {
    if (!IsOpen()) {
        return;
    }
    if (m_destination != nullptr) {
        m_processor->Finish();
        while (m_state == kCXResultOK) {
            m_state = m_processor->Process();
            if (!MoveOutput()) {
                break;
            }
        }
        if (m_state != kCXResultEndOfStream) {
            SetError(m_state);
        }
    }
    m_source = nullptr;
    m_destination = nullptr;
    m_flags &= ~(kCXStreamIsOpen | kCXStreamEnd);
}

/// Tops the processor's input up. The end of the source is no fault here: the processor knows
/// whether its data ended with it.
CXResult CXStreamProcessorWrapper::FillFromSource() {
    uint64_t wanted = m_processor->GetInputRoom();
    if (m_source->IsRemainingKnown()) {
        wanted = std::min(wanted, m_source->GetRemaining());
    }
    if (wanted == 0) {
        return kCXResultOK;
    }
    const CXResult result = m_processor->FillInput(*m_source, wanted);
    return result == kCXResultEndOfStream ? kCXResultOK : result;
}

uint64_t CXStreamProcessorWrapper::BufferedRead(void* data, uint64_t count) {
    if (!IsOpen() || m_source == nullptr) {
        SetError(IsOpen() ? kCXResultNotSupported : kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count) {
        const uint64_t left = count - done;
        const uint64_t available = std::min(m_processor->GetOutputAvailable(), left);
        if (available != 0) {
            m_processor->ReadOutput(to + done, available);
            done += available;
            continue;
        }
        if (m_state == kCXResultEndOfStream) {
            MarkEnd();
            break;
        }
        if (m_state != kCXResultOK) {
            SetError(m_state);
            break;
        }
        const CXResult filled = FillFromSource();
        if (filled != kCXResultOK) {
            SetError(filled);
            break;
        }
        uint64_t produced = 0;
        m_state = left >= kDirectFrom ? m_processor->ProcessInto(to + done, left, produced)
                                      : m_processor->Process();
        if (left >= kDirectFrom && m_state == kCXResultNotSupported) {
            m_state = m_processor->Process();
        }
        done += produced;
    }
    m_windowOffset += done;
    return done;
}

bool CXStreamProcessorWrapper::MoveOutput() {
    const uint64_t available = m_processor->GetOutputAvailable();
    if (available == 0) {
        return true;
    }
    const CXResult result = m_processor->ReadOutputToStream(*m_destination, available);
    SetError(result);
    return result == kCXResultOK;
}

uint64_t CXStreamProcessorWrapper::BufferedWrite(const void* data, uint64_t count) {
    if (!IsOpen() || m_destination == nullptr) {
        SetError(IsOpen() ? kCXResultNotSupported : kCXResultNotOpen);
        return 0;
    }
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    CXStreamStaticBuffer input(data, count);
    while (m_state == kCXResultOK && input.GetRemaining() != 0) {
        // Without new input `Process` would take an empty buffer for the end of the data.
        const uint64_t wanted = std::min(m_processor->GetInputRoom(), input.GetRemaining());
        const CXResult filled = m_processor->FillInput(input, wanted);
        if (filled != kCXResultOK) {
            SetError(filled);
            break;
        }
        m_state = m_processor->Process();
        if (!MoveOutput()) {
            break;
        }
    }
    uint64_t done = input.GetPosition();
    if (m_state == kCXResultEndOfStream) {
        done = count;
    } else {
        SetError(m_state);
    }
    m_windowOffset += done;
    return done;
}

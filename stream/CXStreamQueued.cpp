#include "stream/CXStreamQueued.h"

CXStreamQueued::CXStreamQueued() {
    m_flags = kCXStreamReadable | kCXStreamWritable | kCXStreamSizeKnown | kCXStreamSizeIsRest |
              kCXStreamIsOpen;
}

CXStreamQueued::~CXStreamQueued() {
    DeleteEvents();
}

CXGenericEvent* CXStreamQueued::CreateEvent(uint32_t number) {
    return CXStreamFIFO::MakeEvent(*this, m_input, number);
}

uint64_t CXStreamQueued::GetSize() {
    return m_input.GetSize();
}

void CXStreamQueued::SetFlagsUnderMask(uint32_t value, uint32_t mask) {
    m_input.SetFlagsUnderMask(value, mask);
}

uint64_t CXStreamQueued::BufferedRead(void* data, uint64_t count) {
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    if (m_closedHere.load(std::memory_order_relaxed)) {
        SetError(kCXResultNotOpen);
        return 0;
    }
    bool ended = false;
    const uint64_t taken = m_input.Take(data, count, ended);
    if (ended) {
        MarkEnd();
    }
    return taken;
}

CXResult CXStreamQueued::CheckWrite(const void* data, uint64_t count) const {
    if (m_closedHere.load(std::memory_order_relaxed)) {
        return kCXResultNotOpen;
    }
    if (!IsOpen()) {
        return kCXResultBrokenPipe;
    }
    return data == nullptr && count != 0 ? kCXResultInvalidArgument : kCXResultOK;
}

bool CXStreamQueued::CloseHere() {
    if (m_closedHere.exchange(true, std::memory_order_relaxed)) {
        return false;
    }
    CloseThere();
    m_flags &= ~kCXStreamEnd;
    m_input.Discard();
    return true;
}

void CXStreamQueued::CloseThere() {
    // The queue first: who finds the stream not open also finds the end of its data.
    m_input.Close();
    m_flags &= ~kCXStreamIsOpen;
}

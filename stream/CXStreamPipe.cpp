#include "stream/CXStreamPipe.h"

CXStreamPipe::CXStreamPipe() {
    m_ends[0].m_other = &m_ends[1];
    m_ends[1].m_other = &m_ends[0];
}

void CXStreamPipe::End::Close() {
    if (CloseHere()) {
        m_other->CloseThere();
    }
}

uint64_t CXStreamPipe::End::BufferedWrite(const void* data, uint64_t count) {
    CXResult result = CheckWrite(data, count);
    if (result == kCXResultOK) {
        result = m_other->m_input.Append(data, count);
        if (result == kCXResultNotOpen) {
            result = kCXResultBrokenPipe;
        }
    }
    SetError(result);
    return result == kCXResultOK ? count : 0;
}

#include "stream/CXStreamMultiplexerStream.h"

#include "stream/CXStreamMultiplexer.h"

CXStreamMultiplexerStream::CXStreamMultiplexerStream(CXStreamMultiplexer& multiplexer, uint32_t id)
    : m_multiplexer(&multiplexer), m_id(id) {}

CXStreamMultiplexerStream::~CXStreamMultiplexerStream() = default;

void CXStreamMultiplexerStream::Close() {
    if (!CloseHere()) {
        return;
    }
    CXStreamMultiplexer* multiplexer = m_multiplexer.load(std::memory_order_acquire);
    if (multiplexer != nullptr) {
        multiplexer->CloseChannel(*this);
    }
}

void CXStreamMultiplexerStream::Flush(uint32_t options) {
    CXStreamMultiplexer* multiplexer = m_multiplexer.load(std::memory_order_acquire);
    if (multiplexer != nullptr) {
        multiplexer->FlushUnderlying(options);
    }
}

uint64_t CXStreamMultiplexerStream::BufferedWrite(const void* data, uint64_t count) {
    const CXResult result = CheckWrite(data, count);
    if (result != kCXResultOK) {
        SetError(result);
        return 0;
    }
    CXStreamMultiplexer* multiplexer = m_multiplexer.load(std::memory_order_acquire);
    if (multiplexer == nullptr) {
        SetError(kCXResultBrokenPipe);
        return 0;
    }
    return count == 0 ? 0 : multiplexer->SendData(*this, data, count);
}

void CXStreamMultiplexerStream::Deliver(const void* data, uint64_t count) {
    if (m_input.Append(data, count) == kCXResultNoResources) {
        // A gap in the data must not go unnoticed.
        SetError(kCXResultNoResources);
        CloseThere();
    }
}

void CXStreamMultiplexerStream::Detach() {
    m_multiplexer.store(nullptr, std::memory_order_release);
    CloseThere();
}

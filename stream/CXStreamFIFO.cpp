#include "stream/CXStreamFIFO.h"

#include "runtime/CXGenericEvent.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

/// Reads nothing but atomics, so that any thread may poll it.
class QueueEvent final : public CXGenericEvent {
public:
    QueueEvent(const CXStream& stream, const std::atomic<uint64_t>& held, uint32_t number)
        : m_stream(stream), m_held(held), m_number(number) {}
    ~QueueEvent() override { DetachRefs(); }

    bool Test() override {
        return m_number == kCXStreamEventNotOpen ? !m_stream.IsOpen()
                                                 : m_held.load(std::memory_order_relaxed) != 0;
    }

private:
    const CXStream& m_stream;
    const std::atomic<uint64_t>& m_held;
    const uint32_t m_number;
};

} // namespace

CXStreamFIFO::CXStreamFIFO() {
    m_flags = kCXStreamReadable | kCXStreamWritable | kCXStreamSizeKnown | kCXStreamSizeIsRest |
              kCXStreamIsOpen;
}

CXStreamFIFO::~CXStreamFIFO() {
    DeleteEvents();
    FreeChain(m_head);
}

CXGenericEvent* CXStreamFIFO::MakeEvent(const CXStream& stream, const CXStreamFIFO& queue,
                                        uint32_t number) {
    if (number == kCXStreamEventCanRead || number == kCXStreamEventNotOpen) {
        return new QueueEvent(stream, queue.m_held, number);
    }
    return new CXGenericEvent;
}

CXGenericEvent* CXStreamFIFO::CreateEvent(uint32_t number) {
    return MakeEvent(*this, *this, number);
}

uint64_t CXStreamFIFO::GetSize() {
    return m_held.load(std::memory_order_relaxed);
}

void CXStreamFIFO::SetFlagsUnderMask(uint32_t /*value*/, uint32_t /*mask*/) {
    m_arrival.Set();
}

void CXStreamFIFO::Close() {
    const CXCriticalSectionGuard guard(m_lock);
    m_flags &= ~kCXStreamIsOpen;
    m_arrival.Set();
}

uint64_t CXStreamFIFO::BufferedWrite(const void* data, uint64_t count) {
    const CXResult result = Append(data, count);
    SetError(result);
    return result == kCXResultOK ? count : 0;
}

uint64_t CXStreamFIFO::BufferedRead(void* data, uint64_t count) {
    if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
        return 0;
    }
    bool ended = false;
    const uint64_t taken = Take(data, count, ended);
    if (ended) {
        MarkEnd();
    }
    return taken;
}

CXResult CXStreamFIFO::Append(const void* data, uint64_t count) {
    if (count == 0) {
        return kCXResultOK;
    }
    if (data == nullptr) {
        return kCXResultInvalidArgument;
    }
    if (!IsOpen()) {
        return kCXResultNotOpen;
    }
    // From the general heap: one thread allocates what another frees, and the small-block caches
    // would pile up in the reader's.
    Block* block = nullptr;
    if (count <= static_cast<uint64_t>(PTRDIFF_MAX) - sizeof(Block)) {
        block = static_cast<Block*>(std::malloc(static_cast<size_t>(count) + sizeof(Block)));
    }
    if (block == nullptr) {
        return kCXResultNoResources;
    }
    block->next = nullptr;
    block->size = count;
    std::memcpy(block->GetBytes(), data, static_cast<size_t>(count));

    const CXCriticalSectionGuard guard(m_lock);
    if (!IsOpen()) {
        FreeChain(block);
        return kCXResultNotOpen;
    }
    (m_tail != nullptr ? m_tail->next : m_head) = block;
    m_tail = block;
    m_held.fetch_add(count, std::memory_order_relaxed);
    m_arrival.Set();
    return kCXResultOK;
}

uint64_t CXStreamFIFO::Take(void* data, uint64_t count, bool& ended) {
    ended = false;
    if (count == 0) {
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t taken = 0;
    Block* finished = nullptr; // freed when the lock is no longer held
    {
        const CXCriticalSectionGuard guard(m_lock);
        while (taken < count && m_head != nullptr) {
            Block* block = m_head;
            const uint64_t piece = std::min(count - taken, block->size - m_headTaken);
            std::memcpy(to + taken, block->GetBytes() + m_headTaken, static_cast<size_t>(piece));
            taken += piece;
            m_headTaken += piece;
            if (m_headTaken == block->size) {
                m_head = block->next;
                m_headTaken = 0;
                block->next = finished;
                finished = block;
            }
        }
        m_held.fetch_sub(taken, std::memory_order_relaxed);
        if (m_head == nullptr) {
            m_tail = nullptr;
            if (IsOpen()) {
                m_arrival.Reset();
            } else {
                ended = taken < count;
            }
        }
    }
    FreeChain(finished);
    return taken;
}

void CXStreamFIFO::Discard() {
    Block* dropped = nullptr;
    {
        const CXCriticalSectionGuard guard(m_lock);
        dropped = m_head;
        m_head = m_tail = nullptr;
        m_headTaken = 0;
        m_held.store(0, std::memory_order_relaxed);
    }
    FreeChain(dropped);
}

void CXStreamFIFO::FreeChain(Block* block) {
    while (block != nullptr) {
        Block* next = block->next;
        std::free(block);
        block = next;
    }
}

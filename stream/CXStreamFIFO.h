// A queue of bytes between threads.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXEvent.h"
#include "stream/CXStream.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

/// Any thread may write, read, close or ask at any time. Nothing ever blocks and nothing limits
/// what is held: whoever writes is responsible for the amount. An open queue that is dry reads 0
/// bytes without an error. A closed one still gives what it holds; then reads store
/// kCXResultEndOfStream. Writes to a closed one store kCXResultNotOpen. There is no position.
class CXStreamFIFO : public CXStream {
public:
    CXStreamFIFO();
    ~CXStreamFIFO() override;

    // ---- CXStream ----
    /// kCXStreamEventCanRead holds while bytes are held. Both may be tested on any thread.
    CXGenericEvent* CreateEvent(uint32_t number) override;
    /// Bytes held.
    uint64_t GetSize() override;
    /// Changes no flag; wakes who waits for the arrival event.
    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override;
    /// No more bytes will come. Wakes the waiters.
    void Close() override;
    /// Queues all of it or, when memory runs out (kCXResultNoResources), nothing.
    uint64_t BufferedWrite(const void* data, uint64_t count) override;
    /// Gives what there is, up to `count` bytes.
    uint64_t BufferedRead(void* data, uint64_t count) override;

    /// Set by each write, by closing and by `SetFlagsUnderMask`; reset by a read that leaves an
    /// open queue dry. So a reader reads, tests what else may end its waiting, and then waits.
    CXEvent& GetArrivalEvent() { return m_arrival; }

    // ---- The queue itself, for streams that are built on one ----

    /// As `BufferedWrite`, but the failure is told alone and not stored.
    CXResult Append(const void* data, uint64_t count);
    /// As `BufferedRead`; `ended` tells whether it fell short because the queue is closed.
    uint64_t Take(void* data, uint64_t count, bool& ended);
    /// Drops what is held.
    void Discard();
    /// Makes the event `number` of a stream that reads from `queue`; see CXStream::CreateEvent.
    static CXGenericEvent* MakeEvent(const CXStream& stream, const CXStreamFIFO& queue,
                                     uint32_t number);

private:
    struct Block {
        Block* next;
        uint64_t size;
        uint8_t* GetBytes() { return reinterpret_cast<uint8_t*>(this + 1); }
    };
    static void FreeChain(Block* block);

    CXCriticalSection m_lock; // over the list, closing, and the event's state
    Block* m_head = nullptr;
    Block* m_tail = nullptr;
    uint64_t m_headTaken = 0; ///< bytes of the head block that were read already
    CXEvent m_arrival;
    std::atomic<uint64_t> m_held{0};
};

// Base of the streams whose bytes arrive through a queue that another thread fills.
#pragma once

#include "stream/CXStreamFIFO.h"

#include <atomic>
#include <cstdint>

/// One end of a two-way connection. One thread may read while others write or close. Reads never
/// wait: an open end whose queue is dry reads 0 bytes without an error.
///
/// When the other end goes away, the open flag is cleared: what has arrived can still be read, then
/// reads store kCXResultEndOfStream; writes store kCXResultBrokenPipe. After `Close` on this end
/// what has arrived is gone, and reads and writes store kCXResultNotOpen. There is no position.
class CXStreamQueued : public CXStream {
public:
    ~CXStreamQueued() override;

    // ---- CXStream ----
    /// As those of CXStreamFIFO, for any thread.
    CXGenericEvent* CreateEvent(uint32_t number) override;
    /// Bytes that have arrived and were not read.
    uint64_t GetSize() override;
    /// Changes no flag; wakes who waits for the arrival event.
    void SetFlagsUnderMask(uint32_t value, uint32_t mask) override;
    uint64_t BufferedRead(void* data, uint64_t count) override;

    /// See CXStreamFIFO::GetArrivalEvent.
    CXEvent& GetArrivalEvent() { return m_input.GetArrivalEvent(); }

protected:
    CXStreamQueued();

    /// Why a write can't be done, or kCXResultOK.
    CXResult CheckWrite(const void* data, uint64_t count) const;
    /// Closes this end; false if that was done before.
    bool CloseHere();
    /// The other end sends no more and takes no more.
    void CloseThere();

    CXStreamFIFO m_input;

private:
    std::atomic<bool> m_closedHere{false};
};

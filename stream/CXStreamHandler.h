// A worker that pumps bytes between streams.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXEvent.h"
#include "runtime/CXThread.h"
#include "stream/CXStream.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

/// One thread serves any number of pumps, each of which carries what comes from its source to its
/// destination until the source ends. Sources are asked by their events in passes; a pass that
/// moved nothing is followed by a pause of 1 ms, after a quiet while of 10 ms. Adding and removing
/// from any thread, also before the start; it waits until the pass ends.
class CXStreamHandler : public CXThread {
public:
    /// Number of the event that holds while there is no pump.
    static constexpr uint32_t kEventIdle = 3;
    /// Told once, on the handler's thread, when its pump has ended by itself. It may add and remove
    /// pumps.
    using Done = std::function<void(CXResult result)>;

    CXStreamHandler();
    ~CXStreamHandler() override;

    CXGenericEvent* CreateEvent(uint32_t number) override;
    void Proc() override;
    void Stop() override;

    /// Adds a pump. The streams are not owned, belong to the handler's thread from now on (those
    /// that cross threads: only the source's reading side), and must outlive the pump. The source's
    /// earlier error is forgotten. `done` gets kCXResultOK at the end of the source, or the error
    /// of the stream that failed; before that the destination was flushed and, with
    /// `closeDestination`, closed.
    void Add(CXStream& source, CXStream& destination, bool closeDestination = false,
             Done done = nullptr);
    /// Takes out every pump from or to that stream; afterwards the handler doesn't touch it. What
    /// was read was also written.
    void Remove(const CXStream& stream);

private:
    struct Pump;
    enum class Step : uint8_t { Idle, Moved, Ended };

    /// True if any bytes were moved.
    bool Pass();
    static Step Move(Pump& pump);
    void UpdateCount();

    CXRecursiveLock m_pumpLock;
    std::vector<std::unique_ptr<Pump>> m_pumps;
    std::atomic<bool> m_idle{true};
    CXEvent m_wake;
};

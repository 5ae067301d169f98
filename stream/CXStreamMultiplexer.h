// Several logical streams over one underlying stream.
//
// The protocol is a row of commands in both directions. Integers are 32 bits in the machine's
// (little-endian) order:
//   1 id             open a channel
//   2 id             close it
//   3 id size bytes  data
// Both sides choose the ids; that they don't choose the same is up to the programs. An id that is
// opened again stands for a new channel, and the earlier one is not open any more.
#pragma once

#include "core/CXRelaxed.h"
#include "runtime/CXEvent.h"
#include "runtime/CXReference.h"
#include "runtime/CXThread.h"
#include "stream/CXStreamMultiplexerStream.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <set>

/// A thread that reads the underlying stream and sorts what comes into the channels' queues, whose
/// length nothing limits. Any thread may open, take, write and close channels. It ends at the stop
/// flag, when a read fails, or at an unknown command; then no channel is open any more.
///
/// The underlying stream is not owned. It must let one thread read while another writes: a socket
/// stream, a pipe's end, a channel. Channels and the write side share one lock, so a peer that
/// takes no bytes holds up the reading thread too, as long as the underlying write waits for it.
class CXStreamMultiplexer : public CXThread {
public:
    using Channel = CXReference<CXStreamMultiplexerStream>;
    /// Number of the event that holds while a channel that the other side opened was not taken.
    static constexpr uint32_t kEventChannelWaits = 3;

    /// `arrivals`: null if reads of the underlying stream wait for data; then a short read is a
    /// failure, and to stop the thread the stream is closed first. Otherwise the event that is set
    /// while the stream has something to read (`GetArrivalEvent`).
    explicit CXStreamMultiplexer(CXStream& underlying, CXEvent* arrivals = nullptr);
    /// Stops. Nobody may be inside a call of a channel; channels that are still held are not open.
    ~CXStreamMultiplexer() override;

    CXGenericEvent* CreateEvent(uint32_t number) override;
    void Proc() override;
    /// A thread that ended may be started again; the channels of before stay as they are.
    void Start() override;
    void Stop() override;

    /// Opens a channel on both sides; null if the underlying stream doesn't take the command, or
    /// the thread has ended.
    Channel OpenChannel(uint32_t id);
    /// The channel of the lowest id that the other side opened and nobody took yet. Waits at most
    /// `milliseconds` for one; null if none came for this caller, or the thread ended.
    Channel TakeChannel(uint32_t milliseconds = 0);

    /// Channels that are held, taken or not.
    size_t GetChannelCount();
    /// Why the thread ended: kCXResultOK while it runs and after `Stop`, kCXResultBadData for an
    /// unknown command, else what the underlying stream failed with.
    CXResult GetEndResult() const { return m_endResult; }

private:
    friend class CXStreamMultiplexerStream;
    // On the thread.
    uint64_t ReadSome(void* data, uint64_t count);
    CXResult ReadAll(void* data, uint64_t count);
    CXResult Obey(uint8_t command);
    void OpenedThere(uint32_t id);
    void ClosedThere(uint32_t id);
    CXResult ReceiveData(uint32_t id);
    void EndChannels(CXResult result);

    // For the channels.
    void CloseChannel(CXStreamMultiplexerStream& stream);
    uint64_t SendData(CXStreamMultiplexerStream& stream, const void* data, uint64_t count);
    void FlushUnderlying(uint32_t options);

    // With the lock held.
    Channel StoreChannel(uint32_t id);
    Channel FirstUntaken();
    void UntakenChanged();
    bool SendCommand(uint8_t command, uint32_t id);
    uint64_t WriteWhole(const void* data, uint64_t count);

    CXStream& m_underlying;
    CXEvent* const m_arrivals;
    CXCriticalSection m_lock; // over all below and the write side of the underlying stream
    std::map<uint32_t, Channel> m_channels;
    std::set<uint32_t> m_untaken; // ids of those that nobody here opened or took
    CXEvent m_channelWaits;       // set while there are such, and once the thread has ended
    std::atomic<bool> m_hasUntaken{false};
    bool m_ended = false;
    CXResult m_writeResult = kCXResultOK; // a write fell short: the protocol is out of step
    CXRelaxed<CXResult> m_endResult = kCXResultOK;
};

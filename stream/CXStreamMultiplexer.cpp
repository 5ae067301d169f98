#include "stream/CXStreamMultiplexer.h"

#include "core/CXLog.h"
#include "core/CXTime.h"
#include "runtime/CXGenericEventKinds.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint8_t kCommandOpen = 1;
constexpr uint8_t kCommandClose = 2;
constexpr uint8_t kCommandData = 3;
constexpr uint64_t kPiece = 16384;
constexpr uint64_t kDataHeader = 9;
constexpr uint64_t kMostPerCommand = 0xFFFFFFFF;
/// How soon a stop flag that was set without a wake-up is seen, in ms.
constexpr uint32_t kLongestWait = 500;

} // namespace

CXStreamMultiplexer::CXStreamMultiplexer(CXStream& underlying, CXEvent* arrivals)
    : CXThread("CXStreamMultiplexer"), m_underlying(underlying), m_arrivals(arrivals) {}

CXStreamMultiplexer::~CXStreamMultiplexer() {
    DeleteEvents();
    CXStreamMultiplexer::Stop();
    const CXCriticalSectionGuard guard(m_lock);
    for (auto& [id, stream] : m_channels) {
        stream->Detach();
    }
    m_channels.clear();
}

CXGenericEvent* CXStreamMultiplexer::CreateEvent(uint32_t number) {
    if (number == kEventChannelWaits) {
        return new CXGenericEventBoolVariable(&m_hasUntaken, false);
    }
    return CXThread::CreateEvent(number);
}

void CXStreamMultiplexer::Start() {
    if (!IsRunning()) {
        const CXCriticalSectionGuard guard(m_lock);
        m_ended = false;
        m_endResult = kCXResultOK;
        UntakenChanged();
    }
    CXThread::Start();
}

void CXStreamMultiplexer::Stop() {
    RequestStop();
    if (m_arrivals != nullptr) {
        m_arrivals->Set();
    }
    CXThread::Stop();
}

// ---- The thread ----

void CXStreamMultiplexer::Proc() {
    CXResult result = kCXResultOK;
    while (result == kCXResultOK && !IsStopRequested()) {
        uint8_t command = 0;
        result = ReadAll(&command, sizeof(command));
        if (result == kCXResultOK) {
            result = Obey(command);
        }
    }
    EndChannels(result);
}

uint64_t CXStreamMultiplexer::ReadSome(void* data, uint64_t count) {
    while (!IsStopRequested()) {
        // Asked before the read: what is written before the closing is never missed.
        const bool wasOpen = m_underlying.IsOpen();
        const uint64_t got = m_underlying.Read(data, count);
        if (got != 0 || m_arrivals == nullptr || !wasOpen) {
            return got;
        }
        if (!IsStopRequested()) {
            m_arrivals->Wait(kLongestWait);
        }
    }
    return 0;
}

CXResult CXStreamMultiplexer::ReadAll(void* data, uint64_t count) {
    uint8_t* to = static_cast<uint8_t*>(data);
    for (uint64_t done = 0; done < count;) {
        const uint64_t got = ReadSome(to + done, count - done);
        if (got == 0) {
            return IsStopRequested() ? kCXResultCancelled
                                     : CXResultCertainFailure(m_underlying.GetLastError());
        }
        done += got;
    }
    return kCXResultOK;
}

CXResult CXStreamMultiplexer::Obey(uint8_t command) {
    if (command != kCommandOpen && command != kCommandClose && command != kCommandData) {
        CXLogFormat("CXStreamMultiplexer::Proc> unknown command %d", static_cast<int>(command));
        return kCXResultBadData;
    }
    uint32_t id = 0;
    const CXResult result = ReadAll(&id, sizeof(id));
    if (result != kCXResultOK) {
        return result;
    }
    if (command == kCommandData) {
        return ReceiveData(id);
    }
    if (command == kCommandOpen) {
        OpenedThere(id);
    } else {
        ClosedThere(id);
    }
    return kCXResultOK;
}

void CXStreamMultiplexer::OpenedThere(uint32_t id) {
    const CXCriticalSectionGuard guard(m_lock);
    StoreChannel(id);
    m_untaken.insert(id);
    UntakenChanged();
}

void CXStreamMultiplexer::ClosedThere(uint32_t id) {
    const CXCriticalSectionGuard guard(m_lock);
    const auto found = m_channels.find(id);
    if (found != m_channels.end()) {
        found->second->CloseThere();
    }
}

CXResult CXStreamMultiplexer::ReceiveData(uint32_t id) {
    uint32_t left = 0;
    CXResult result = ReadAll(&left, sizeof(left));
    if (result != kCXResultOK) {
        return result;
    }
    Channel channel; // null: the bytes are read and dropped
    {
        const CXCriticalSectionGuard guard(m_lock);
        const auto found = m_channels.find(id);
        if (found != m_channels.end()) {
            channel = found->second;
        }
    }
    // The stated size allocates nothing: only what has come is queued.
    uint8_t piece[kPiece];
    while (left != 0) {
        const uint64_t got = ReadSome(piece, std::min<uint64_t>(left, kPiece));
        if (got == 0) {
            return IsStopRequested() ? kCXResultCancelled
                                     : CXResultCertainFailure(m_underlying.GetLastError());
        }
        if (channel) {
            channel->Deliver(piece, got);
        }
        left -= static_cast<uint32_t>(got);
    }
    return kCXResultOK;
}

void CXStreamMultiplexer::EndChannels(CXResult result) {
    const CXCriticalSectionGuard guard(m_lock);
    m_endResult = result == kCXResultCancelled ? kCXResultOK : result;
    m_ended = true;
    for (auto& [id, stream] : m_channels) {
        stream->CloseThere();
    }
    UntakenChanged();
}

// ---- Channels ----

CXStreamMultiplexer::Channel CXStreamMultiplexer::OpenChannel(uint32_t id) {
    const CXCriticalSectionGuard guard(m_lock);
    if (m_ended || !SendCommand(kCommandOpen, id)) {
        return Channel();
    }
    return StoreChannel(id);
}

CXStreamMultiplexer::Channel CXStreamMultiplexer::TakeChannel(uint32_t milliseconds) {
    const int64_t start = CXTime::GetCurrentTime();
    for (;;) {
        const int64_t passed = CXTime::GetCurrentTime() - start;
        {
            const CXCriticalSectionGuard guard(m_lock);
            Channel channel = FirstUntaken();
            if (channel || m_ended || passed >= static_cast<int64_t>(milliseconds)) {
                return channel;
            }
        }
        // One channel wakes every thread that waits; those that come too late wait on.
        m_channelWaits.Wait(milliseconds - static_cast<uint32_t>(std::max<int64_t>(passed, 0)));
    }
}

size_t CXStreamMultiplexer::GetChannelCount() {
    const CXCriticalSectionGuard guard(m_lock);
    return m_channels.size();
}

CXStreamMultiplexer::Channel CXStreamMultiplexer::StoreChannel(uint32_t id) {
    Channel& stored = m_channels[id];
    if (stored) {
        stored->Detach();
        m_untaken.erase(id);
        UntakenChanged();
    }
    stored = Channel(new CXStreamMultiplexerStream(*this, id));
    return stored;
}

CXStreamMultiplexer::Channel CXStreamMultiplexer::FirstUntaken() {
    if (m_untaken.empty()) {
        return Channel();
    }
    const uint32_t id = *m_untaken.begin();
    m_untaken.erase(m_untaken.begin());
    UntakenChanged();
    return m_channels[id];
}

void CXStreamMultiplexer::UntakenChanged() {
    m_hasUntaken.store(!m_untaken.empty(), std::memory_order_relaxed);
    if (!m_untaken.empty() || m_ended) {
        m_channelWaits.Set();
    } else {
        m_channelWaits.Reset();
    }
}

void CXStreamMultiplexer::CloseChannel(CXStreamMultiplexerStream& stream) {
    const CXCriticalSectionGuard guard(m_lock);
    if (stream.m_multiplexer.load(std::memory_order_relaxed) == nullptr) {
        // Replaced meanwhile: a command would close the channel that has the id now.
        return;
    }
    SendCommand(kCommandClose, stream.m_id);
    stream.Detach();
    m_channels.erase(stream.m_id);
    m_untaken.erase(stream.m_id);
    UntakenChanged();
}

// ---- Sending ----

bool CXStreamMultiplexer::SendCommand(uint8_t command, uint32_t id) {
    uint8_t bytes[1 + sizeof(id)] = {command};
    std::memcpy(bytes + 1, &id, sizeof(id));
    return WriteWhole(bytes, sizeof(bytes)) == sizeof(bytes);
}

uint64_t CXStreamMultiplexer::SendData(CXStreamMultiplexerStream& stream, const void* data,
                                       uint64_t count) {
    const CXCriticalSectionGuard guard(m_lock);
    if (stream.m_multiplexer.load(std::memory_order_relaxed) == nullptr) {
        stream.SetError(kCXResultBrokenPipe);
        return 0;
    }
    const uint8_t* from = static_cast<const uint8_t*>(data);
    uint64_t done = 0;
    while (done < count && m_writeResult == kCXResultOK) {
        const uint32_t size = static_cast<uint32_t>(std::min(count - done, kMostPerCommand));
        // The first bytes travel with their header: a connection may hold a small write back
        // until the one before was answered for.
        uint8_t start[kPiece];
        start[0] = kCommandData;
        const uint64_t first = std::min<uint64_t>(size, kPiece - kDataHeader);
        std::memcpy(start + 1, &stream.m_id, sizeof(stream.m_id));
        std::memcpy(start + 5, &size, sizeof(size));
        std::memcpy(start + kDataHeader, from + done, static_cast<size_t>(first));
        uint64_t sent = WriteWhole(start, kDataHeader + first);
        sent -= std::min(sent, kDataHeader);
        if (sent == first && first < size) {
            sent += WriteWhole(from + done + first, size - first);
        }
        done += sent;
    }
    if (done < count) {
        stream.SetError(m_writeResult);
    }
    return done;
}

uint64_t CXStreamMultiplexer::WriteWhole(const void* data, uint64_t count) {
    if (m_writeResult != kCXResultOK) {
        return 0;
    }
    const uint64_t written = m_underlying.Write(data, count);
    if (written < count) {
        m_writeResult = CXResultCertainFailure(m_underlying.GetLastError());
    }
    return written;
}

void CXStreamMultiplexer::FlushUnderlying(uint32_t options) {
    const CXCriticalSectionGuard guard(m_lock);
    m_underlying.Flush(options);
}

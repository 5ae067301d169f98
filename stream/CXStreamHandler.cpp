#include "stream/CXStreamHandler.h"

#include "runtime/CXGenericEventKinds.h"
#include "runtime/CXGenericEventRef.h"

#include <algorithm>
#include <utility>

namespace {
constexpr uint64_t kPiece = 16384;
constexpr uint32_t kShortPause = 1; // ms
constexpr uint32_t kLongPause = 10;
constexpr int kShortPauses = 20;
} // namespace

struct CXStreamHandler::Pump {
    CXStream& source;
    CXStream& destination;
    bool closeDestination;
    Done done;
    CXGenericEventRef canRead;
    CXGenericEventRef notOpen;
    CXResult result = kCXResultOK;
};

CXStreamHandler::CXStreamHandler() : CXThread("CXStreamHandler") {}

CXStreamHandler::~CXStreamHandler() {
    DeleteEvents();
    CXStreamHandler::Stop();
}

CXGenericEvent* CXStreamHandler::CreateEvent(uint32_t number) {
    if (number == kEventIdle) {
        return new CXGenericEventBoolVariable(&m_idle, false);
    }
    return CXThread::CreateEvent(number);
}

void CXStreamHandler::Stop() {
    RequestStop();
    m_wake.Set();
    CXThread::Stop();
}

void CXStreamHandler::Add(CXStream& source, CXStream& destination, bool closeDestination,
                          Done done) {
    const CXRecursiveLockGuard guard(m_pumpLock);
    source.ResetError();
    // A source that waits for the whole of a piece would hold up the other pumps.
    source.SetFlagsUnderMask(kCXStreamPartialReads, kCXStreamPartialReads);
    m_pumps.push_back(std::unique_ptr<Pump>(new Pump{
        source, destination, closeDestination, std::move(done),
        source.GetEventRef(kCXStreamEventCanRead), source.GetEventRef(kCXStreamEventNotOpen)}));
    UpdateCount();
    m_wake.Set();
}

void CXStreamHandler::Remove(const CXStream& stream) {
    const CXRecursiveLockGuard guard(m_pumpLock);
    std::erase_if(m_pumps, [&](const std::unique_ptr<Pump>& pump) {
        return &pump->source == &stream || &pump->destination == &stream;
    });
    UpdateCount();
}

void CXStreamHandler::UpdateCount() {
    m_idle.store(m_pumps.empty(), std::memory_order_relaxed);
}

void CXStreamHandler::Proc() {
    int quiet = 0;
    while (!IsStopRequested()) {
        m_wake.Reset();
        if (Pass()) {
            quiet = 0;
        } else if (!IsStopRequested()) {
            m_wake.Wait(quiet < kShortPauses ? kShortPause : kLongPause);
            quiet = std::min(quiet + 1, kShortPauses);
        }
    }
}

bool CXStreamHandler::Pass() {
    const CXRecursiveLockGuard guard(m_pumpLock);
    bool moved = false;
    for (size_t i = 0; i < m_pumps.size() && !IsStopRequested();) {
        const Step step = Move(*m_pumps[i]);
        moved = moved || step != Step::Idle;
        if (step != Step::Ended) {
            ++i;
            continue;
        }
        const std::unique_ptr<Pump> pump = std::move(m_pumps[i]);
        m_pumps.erase(m_pumps.begin() + static_cast<std::ptrdiff_t>(i));
        pump->destination.Flush();
        if (pump->closeDestination) {
            pump->destination.Close();
        }
        if (pump->done != nullptr) {
            pump->done(pump->result);
        }
        // Only now, so that who waits for idleness finds everything told.
        UpdateCount();
    }
    return moved;
}

CXStreamHandler::Step CXStreamHandler::Move(Pump& pump) {
    // A source that has met its end may count as not readable, but is to be asked once more.
    if (!pump.canRead.Test() && !pump.notOpen.Test() && !pump.source.IsAtEnd()) {
        return Step::Idle;
    }
    // Asked before the read: what is written before the closing is never missed.
    const bool wasOpen = pump.source.IsOpen();
    uint8_t piece[kPiece];
    const uint64_t got = pump.source.Read(piece, kPiece);
    if (got != 0) {
        if (pump.destination.Write(piece, got) == got) {
            return Step::Moved;
        }
        pump.result = CXResultCertainFailure(pump.destination.GetLastError());
        return Step::Ended;
    }
    const CXResult error = pump.source.GetLastError();
    if (error == kCXResultOK && wasOpen && !pump.source.IsAtEnd()) {
        return Step::Idle;
    }
    pump.result = error == kCXResultEndOfStream ? kCXResultOK : error;
    return Step::Ended;
}

// A queue of messages that are delivered later, at or after a due time.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXMessage.h"
#include "runtime/CXMessageTarget.h"
#include "runtime/CXReference.h"
#include "runtime/CXSafePointer.h"
#include "runtime/DynamicReferenceCount.h"

#include <cstdint>
#include <deque>
#include <map>
#include <memory>

/// Posting is for any thread; delivery happens on the thread that calls `DeliverDue`. Messages for
/// a target that has died are dropped.
class CXMessagePost {
public:
    CXMessagePost() = default;
    CXMessagePost(const CXMessagePost&) = delete;
    CXMessagePost& operator=(const CXMessagePost&) = delete;
    virtual ~CXMessagePost() = default;

    /// Posts a message for delivery at `dueTimeMs` (ms since 1970; 0 means as soon as possible).
    /// `sharedRef`, if any, is kept alive until then.
    void Post(CXMessageTarget* target, std::unique_ptr<CXMessage> message,
              CXReference<DynamicReferenceCount> sharedRef = {}, int64_t dueTimeMs = 0);
    /// The same, delivered to the target's listeners instead of the target.
    void PostBroadcast(CXMessageTarget* target, std::unique_ptr<CXMessage> message,
                       CXReference<DynamicReferenceCount> sharedRef = {}, int64_t dueTimeMs = 0);

    /// Number of messages that wait.
    uint32_t CountWaiting();
    /// Target of the message that is being delivered, or null; for the delivering thread.
    CXMessageTarget* GetCurrentTarget() const { return m_current.Get(); }

protected:
    /// Delivers due messages in order of due time, those with equal times in order of posting; at
    /// most as many as waited at the start, so that an answer to a message waits for the next pass.
    void DeliverDue();

private:
    struct Record {
        CXSafePointer<CXMessageTarget> target;
        CXReference<DynamicReferenceCount> sharedRef; // outlives the message, which may use it
        std::unique_ptr<CXMessage> message;
        bool broadcast;
    };

    void Add(Record record, int64_t dueTimeMs);
    bool TakeDue(int64_t now, Record& record);

    CXCriticalSection m_lock;
    std::map<int64_t, std::deque<Record>> m_queue;
    uint32_t m_count = 0;
    CXSafePointer<CXMessageTarget> m_current;
};

#include "runtime/CXMessagePost.h"

#include "core/CXTime.h"

#include <utility>

void CXMessagePost::Post(CXMessageTarget* target, std::unique_ptr<CXMessage> message,
                         CXReference<DynamicReferenceCount> sharedRef, int64_t dueTimeMs) {
    Add({.target = target,
         .sharedRef = std::move(sharedRef),
         .message = std::move(message),
         .broadcast = false},
        dueTimeMs);
}

void CXMessagePost::PostBroadcast(CXMessageTarget* target, std::unique_ptr<CXMessage> message,
                                  CXReference<DynamicReferenceCount> sharedRef, int64_t dueTimeMs) {
    Add({.target = target,
         .sharedRef = std::move(sharedRef),
         .message = std::move(message),
         .broadcast = true},
        dueTimeMs);
}

uint32_t CXMessagePost::CountWaiting() {
    const CXCriticalSectionGuard guard(m_lock);
    return m_count;
}

void CXMessagePost::Add(Record record, int64_t dueTimeMs) {
    const CXCriticalSectionGuard guard(m_lock);
    m_queue[dueTimeMs].push_back(std::move(record));
    ++m_count;
}

bool CXMessagePost::TakeDue(int64_t now, Record& record) {
    const CXCriticalSectionGuard guard(m_lock);
    while (!m_queue.empty() && m_queue.begin()->first <= now) {
        std::deque<Record>& records = m_queue.begin()->second;
        if (records.empty()) {
            m_queue.erase(m_queue.begin());
            continue;
        }
        record = std::move(records.front());
        records.pop_front();
        --m_count;
        return true;
    }
    return false;
}

void CXMessagePost::DeliverDue() {
    for (uint32_t count = CountWaiting(); count > 0; --count) {
        Record record;
        if (!TakeDue(CXTime::GetCurrentTime(), record)) {
            return;
        }
        m_current = record.target;
        if (CXMessageTarget* target = record.target.Get()) {
            if (record.broadcast) {
                target->Broadcast(*record.message);
            } else {
                target->ProcessMessage(*record.message);
            }
        }
        m_current = nullptr;
    }
}

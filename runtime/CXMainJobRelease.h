// The token by which the main thread lets a waiting worker go on.
#pragma once

#include "runtime/CXEvent.h"

#include <atomic>
#include <memory>
#include <utility>

/// Given to a job of `CXWorkerHost::RunOnMainAndWait`. Copies share one waiter. Calling `Release`
/// ends the wait with true; destroying the last copy without that ends it with false. Any thread.
class CXMainJobRelease {
public:
    /// What the two sides share.
    struct Ticket {
        CXEvent done;
        std::atomic<bool> released{false};
        std::atomic<bool> left{false};
    };

    /// For the worker host.
    explicit CXMainJobRelease(std::shared_ptr<Ticket> ticket)
        : m_guard(std::make_shared<Guard>(std::move(ticket))) {}

    /// The main thread's answer is there: the waiter goes on.
    void Release() const {
        m_guard->ticket->released.store(true, std::memory_order_release);
        m_guard->ticket->done.Set();
    }
    /// False once the waiter has given up, so that a dialog can be closed unanswered.
    bool IsWanted() const { return !m_guard->ticket->left.load(std::memory_order_acquire); }

private:
    struct Guard {
        explicit Guard(std::shared_ptr<Ticket> waited) : ticket(std::move(waited)) {}
        Guard(const Guard&) = delete;
        Guard& operator=(const Guard&) = delete;
        ~Guard() { ticket->done.Set(); }
        std::shared_ptr<Ticket> ticket;
    };
    std::shared_ptr<Guard> m_guard;
};

// Turns host names into dotted-quad text (IPv4), at once or on threads of its own.
#pragma once

#include "core/CXLock.h"
#include "core/CXString.h"
#include "net/DNSResolverThread.h"

#include <deque>
#include <memory>
#include <vector>

/// A look-up to be done on a resolver thread.
class DNSResolverRequest {
public:
    explicit DNSResolverRequest(const CXString& host) : hostName(host) {}
    virtual ~DNSResolverRequest() = default;
    /// Called on the resolver's thread with dotted-quad text, or empty when there is no address.
    virtual void Complete(const CXString& resolvedText) = 0;

    const CXString hostName;
};

/// Any thread. The destructor waits until every request is completed; nobody enqueues meanwhile.
class DNSResolverCore {
public:
    static constexpr uint32_t kMaxThreads = 8;

    DNSResolverCore();
    virtual ~DNSResolverCore();
    DNSResolverCore(const DNSResolverCore&) = delete;
    DNSResolverCore& operator=(const DNSResolverCore&) = delete;

    /// Blocks as long as the system's resolver does. A plain dotted quad and "localhost" are
    /// answered without it. `out` is empty on failure.
    virtual void Resolve(const CXString& name, CXString& out);
    /// Puts a request at the end of the queue.
    virtual void Enqueue(std::unique_ptr<DNSResolverRequest> request);

    /// Waits until every request is completed and no thread runs. The destructor does; a derived
    /// class with its own `Resolve` calls it in its destructor.
    void WaitUntilIdle();
    /// Threads now running.
    uint32_t GetThreadCount();

private:
    friend class DNSResolverThread;

    /// The next request. With none left, or with `stopping`, the thread is taken off the running
    /// ones and the answer is null.
    std::unique_ptr<DNSResolverRequest> TakeRequest(DNSResolverThread& thread, bool stopping);
    void Serve(std::unique_ptr<DNSResolverRequest> request);

    CXCriticalSection m_lock; // over everything below
    std::deque<std::unique_ptr<DNSResolverRequest>> m_requests;
    CXLinkedList<DNSResolverThread> m_running;
    std::vector<std::unique_ptr<DNSResolverThread>> m_threads; // running, and ended ones to delete
    uint32_t m_threadCount = 0;
};

// One of the threads that carry out queued look-ups.
#pragma once

#include "runtime/CXLinkedListNode.h"
#include "runtime/CXThread.h"

class DNSResolverCore;

/// Serves its core's queue and ends when it finds it empty. Owned by the core.
class DNSResolverThread final : public CXThread {
public:
    explicit DNSResolverThread(DNSResolverCore* core);
    ~DNSResolverThread() override;
    void Proc() override;

private:
    friend class DNSResolverCore;

    DNSResolverCore* m_core;
    CXLinkedListNode<DNSResolverThread> m_node{this};
};

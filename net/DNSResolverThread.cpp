#include "net/DNSResolverThread.h"

#include "net/DNSResolverCore.h"

DNSResolverThread::DNSResolverThread(DNSResolverCore* core)
    : CXThread("DNSResolver"), m_core(core) {}

DNSResolverThread::~DNSResolverThread() {
    CXThread::Stop();
}

void DNSResolverThread::Proc() {
    for (;;) {
        std::unique_ptr<DNSResolverRequest> request = m_core->TakeRequest(*this, IsStopRequested());
        if (request == nullptr) {
            return;
        }
        m_core->Serve(std::move(request));
    }
}

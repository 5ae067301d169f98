#include "net/DNSResolverCore.h"

#include "core/CXTime.h"
#include "net/CXSocketDriver.h"

#include <absl/strings/match.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

constexpr uint32_t kEndPauseMs = 100;

} // namespace

DNSResolverCore::DNSResolverCore() {
    CXSocketDriver::Current().Start();
}

DNSResolverCore::~DNSResolverCore() {
    WaitUntilIdle();
}

void DNSResolverCore::WaitUntilIdle() {
    while (GetThreadCount() != 0) {
        CXSleep(kEndPauseMs);
    }
}

uint32_t DNSResolverCore::GetThreadCount() {
    const CXCriticalSectionGuard guard(m_lock);
    return m_threadCount;
}

void DNSResolverCore::Resolve(const CXString& name, CXString& out) {
    int32_t n[4];
    if (CXSocketAddress::ScanFourNumbers(name, n) &&
        CXString::Format("%d.%d.%d.%d", n[0], n[1], n[2], n[3]) == name) {
        out = name;
        return;
    }
    if (absl::EqualsIgnoreCase(name.View(), "localhost")) {
        out = "127.0.0.1";
        return;
    }
    CXSocketAddress address;
    // The system would look up only what stands before a NUL.
    const bool whole = name.FindChar('\0') < 0;
    out = whole && CXSocketDriver::Current().LookUp(name, address) ? address.ToText() : CXString();
}

void DNSResolverCore::Enqueue(std::unique_ptr<DNSResolverRequest> request) {
    std::vector<std::unique_ptr<DNSResolverThread>> ended;
    DNSResolverThread* fresh = nullptr;
    {
        const CXCriticalSectionGuard guard(m_lock);
        const auto keep =
            std::partition(m_threads.begin(), m_threads.end(),
                           [](const auto& thread) { return thread->m_node.GetList() != nullptr; });
        std::move(keep, m_threads.end(), std::back_inserter(ended));
        m_threads.erase(keep, m_threads.end());

        m_requests.push_back(std::move(request));
        if (m_threadCount < kMaxThreads) {
            m_threads.push_back(std::make_unique<DNSResolverThread>(this));
            fresh = m_threads.back().get();
            fresh->m_node.LinkLast(m_running);
            ++m_threadCount;
            // It can't end before the lock is free, so it runs if it was started at all.
            fresh->Start();
            if (fresh->IsRunning()) {
                return;
            }
            // The system gave no thread.
            fresh->m_node.Unlink();
            --m_threadCount;
        }
        if (m_threadCount != 0) {
            return;
        }
        request = std::move(m_requests.back());
        m_requests.pop_back();
    }
    Serve(std::move(request));
}

std::unique_ptr<DNSResolverRequest> DNSResolverCore::TakeRequest(DNSResolverThread& thread,
                                                                 bool stopping) {
    const CXCriticalSectionGuard guard(m_lock);
    if (stopping || m_requests.empty()) {
        thread.m_node.Unlink();
        --m_threadCount;
        thread.RequestStop();
        return nullptr;
    }
    std::unique_ptr<DNSResolverRequest> request = std::move(m_requests.front());
    m_requests.pop_front();
    return request;
}

void DNSResolverCore::Serve(std::unique_ptr<DNSResolverRequest> request) {
    CXString text;
    Resolve(request->hostName, text);
    request->Complete(text);
}

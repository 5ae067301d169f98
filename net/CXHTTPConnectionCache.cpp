// Finding, opening and dropping the connections of a CXHTTPConnection.
#include "core/CXText.h"
#include "core/CXTime.h"
#include "net/CXHTTPConnection.h"
#include "net/CXStreamProxyHTTP.h"
#include "net/DNSResolverCore.h"

namespace {
constexpr int32_t kLastPort = 65535;
} // namespace

void CXHTTPConnection::SetProxy(const CXString& proxySpec) {
    m_proxySpec = proxySpec;
    m_proxyAddress = CXSocketAddress();
    m_connections.clear();
}

void CXHTTPConnection::SetSSLContext(std::unique_ptr<CXSSLContext> context) {
    m_connections.clear();
    m_sslContext = std::move(context);
}

void CXHTTPConnection::DropIdleConnections() {
    const int64_t now = CXTime::GetCurrentTime();
    m_connections.remove_if([now](const CXHTTPCachedConnection& connection) {
        return connection.lastUsed + kIdleLimitMs <= now;
    });
}

void CXHTTPConnection::Resolve(const CXString& name, CXString& out) {
    if (m_resolver != nullptr) {
        m_resolver->Resolve(name, out);
    } else {
        DNSResolverCore().Resolve(name, out);
    }
}

CXResult CXHTTPConnection::PrepareProxy() {
    if (!m_proxyAddress.IsNone() || m_proxySpec.IsEmpty()) {
        return kCXResultOK;
    }
    if (m_resolver != nullptr) {
        return CXStreamProxyHTTP::FindProxy(m_proxySpec, *m_resolver, m_proxyAddress);
    }
    DNSResolverCore resolver;
    return CXStreamProxyHTTP::FindProxy(m_proxySpec, resolver, m_proxyAddress);
}

CXResult CXHTTPConnection::MakeSSLContext() {
    if (m_sslContext != nullptr) {
        return kCXResultOK;
    }
    m_sslContext = std::make_unique<CXSSLContext>();
    if (m_sslContext->LoadDefaultVerifyPaths() != kCXResultOK) {
        m_sslContext.reset();
        return kCXResultFailed;
    }
    return kCXResultOK;
}

CXResult CXHTTPConnection::GetConnection(const CXString& host, int32_t port, bool tls,
                                         Connections::iterator& out) {
    if (host.IsEmpty() || port < 1 || port > kLastPort) {
        return kCXResultInvalidArgument;
    }
    const int64_t now = CXTime::GetCurrentTime();
    for (auto entry = m_connections.begin(); entry != m_connections.end(); ++entry) {
        if (entry->lastUsed + kIdleLimitMs > now && entry->tls == tls &&
            (entry->host.IsEmpty() || EqualsNoCase(entry->host, host)) &&
            (entry->port == 0 || entry->port == port)) {
            entry->lastUsed = now;
            out = entry;
            return kCXResultOK;
        }
    }
    // Before anything is looked up or reached: without trust no connection is tried.
    CXResult result = tls ? MakeSSLContext() : kCXResultOK;
    CXHTTPCachedConnection connection;
    connection.tls = tls;
    if (result == kCXResultOK) {
        result = OpenTCP(host, port, connection);
    }
    if (result == kCXResultOK && tls) {
        result = OpenSSL(host, connection);
    }
    if (result != kCXResultOK) {
        return result;
    }
    connection.lastUsed = CXTime::GetCurrentTime();
    out = m_connections.insert(m_connections.end(), std::move(connection));
    return kCXResultOK;
}

CXResult CXHTTPConnection::OpenTCP(const CXString& host, int32_t port,
                                   CXHTTPCachedConnection& connection) {
    const bool isProxied = !m_proxyAddress.IsNone();
    if (isProxied && connection.tls) {
        auto tunnel = std::make_unique<CXStreamProxyHTTP>();
        tunnel->Open(host, port, m_proxyAddress);
        connection.tcp = std::move(tunnel);
    } else {
        CXSocketAddress address = m_proxyAddress;
        if (!isProxied) {
            CXString resolved;
            Resolve(host, resolved);
            if (resolved.IsEmpty()) {
                return kCXResultNotFound;
            }
            address = CXSocketAddress::FromText(resolved, static_cast<uint16_t>(port));
        }
        connection.tcp = std::make_unique<CXStreamTCP>();
        connection.tcp->Open(address, kConnectTimeoutMs);
    }
    if (!connection.tcp->IsOpen()) {
        return CXResultCertainFailure(connection.tcp->GetLastError());
    }
    connection.tcp->SetSendTimeout(kTransferTimeoutMs);
    connection.tcp->SetReceiveTimeout(kTransferTimeoutMs);
    if (connection.tls || !isProxied) {
        connection.host = host;
        connection.port = port;
    }
    return kCXResultOK;
}

CXResult CXHTTPConnection::OpenSSL(const CXString& host, CXHTTPCachedConnection& connection) {
    connection.ssl = std::make_unique<CXStreamSSL>();
    if (m_verifyHost) {
        connection.ssl->SetHostName(host);
    }
    connection.ssl->Open(m_sslContext.get(), connection.tcp.get());
    return connection.ssl->IsOpen() ? kCXResultOK
                                    : CXResultCertainFailure(connection.ssl->GetLastError());
}

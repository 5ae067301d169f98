// A small blocking HTTP/1.1 client.
#pragma once

#include "core/CXStringEdit.h"
#include "net/CXHTTPCachedConnection.h"
#include "net/CXHTTPCookie.h"
#include "net/CXHTTPMessages.h"
#include "net/CXSSLContext.h"
#include "net/CXURI.h"
#include "runtime/CXGenericEventRef.h"

#include <list>
#include <memory>
#include <utility>
#include <vector>

class DNSResolverCore;

/// Sends GET requests without a body, follows absolute redirects, keeps connections open between
/// calls where the server says so, and sends back the cookies of the last reply. One thread at a
/// time; a transfer is ended from outside by the cancel event. There is no retry: a connection that
/// breaks fails the call with kCXResultEndOfStream, and the next call makes a new one.
class CXHTTPConnection {
public:
    using HeaderList = std::vector<std::pair<CXString, CXString>>;

    static constexpr int kMaxRequests = 8;         ///< of one call, redirects included
    static constexpr int64_t kIdleLimitMs = 20000; ///< of a kept connection
    static constexpr uint32_t kConnectTimeoutMs = 10000;
    static constexpr uint32_t kTransferTimeoutMs = 45000; ///< of one send or receive

    CXHTTPConnection();
    ~CXHTTPConnection();
    CXHTTPConnection(const CXHTTPConnection&) = delete;
    CXHTTPConnection& operator=(const CXHTTPConnection&) = delete;

    /// Fetches `uri`. The body goes to `output` (not owned) at its position, or without one to
    /// `GetResponseText`; of an output that isn't empty only the rest is asked for. Success is
    /// status 200 or 206; 404 is kCXResultNotFound, a redirect without an end or an address
    /// kCXResultBadData, any other status kCXResultInvalidArgument (its body is delivered all the
    /// same). A scheme but "http" and "https" is kCXResultUnusable, a host that has no address
    /// kCXResultNotFound, one that can't be reached kCXResultEndOfStream, a failed handshake
    /// kCXResultAccessDenied, a peer of another name and a missing trust file kCXResultFailed.
    /// On failure `debugText` (may be null) gets the requests and the heads of the replies without
    /// credentials; on success it is emptied.
    CXResult Get(const CXURI& uri, CXStream* output, CXStringEdit* debugText = nullptr,
                 const CXHTTPProgress& progress = {});
    /// The same into `text`, which gets what came on failure too.
    CXResult GetText(const CXURI& uri, CXString* text, const CXHTTPProgress& progress = {});

    /// Status of the last reply, 0 when there was none.
    int32_t GetStatus() const { return m_status; }
    const CXStringEdit& GetResponseText() const { return m_responseText; }
    /// First value under that name, letter case aside, else empty.
    CXString GetResponseHeader(absl::string_view name) const;
    CXString GetRequestHeader(absl::string_view name) const;
    /// Appends a header to all requests from now on.
    void SetRequestHeader(const CXString& name, const CXString& value);
    /// Removes the headers of that name, letter case aside; of two in a row the second stays.
    void RemoveRequestHeader(absl::string_view name);
    /// Those of the last reply, and the ones that the next request sends: a request that brings no
    /// reply forgets all.
    std::vector<CXHTTPCookie> GetCookies() const { return m_cookies; }

    // What the owner may set between calls.

    /// While it holds, transfers end within about 500 ms. An empty ref: never.
    void SetCancelEvent(const CXGenericEventRef& event) { m_cancelEvent = event; }
    /// "host:port"; empty: no proxy.
    void SetProxy(const CXString& proxySpec);
    /// Whether a server's certificate must carry the host's name. True from the start.
    void SetVerifyHost(bool verifyHost) { m_verifyHost = verifyHost; }
    /// Looks names up (not owned); null: one of our own.
    void SetResolver(DNSResolverCore* resolver) { m_resolver = resolver; }
    /// What TLS connections trust in place of "data/openssl.crt".
    void SetSSLContext(std::unique_ptr<CXSSLContext> context);

    size_t CountCachedConnections() const { return m_connections.size(); }

private:
    using Connections = std::list<CXHTTPCachedConnection>;

    /// One request of `Get` and its reply, whatever its status.
    CXResult Attempt(const CXURI& uri, CXStringEdit* debugText, const CXHTTPProgress& progress);
    CXResult FollowRedirect(CXURI& uri) const;
    CXResult PrepareProxy();
    CXResult GetConnection(const CXString& host, int32_t port, bool tls,
                           Connections::iterator& out);
    CXResult OpenTCP(const CXString& host, int32_t port, CXHTTPCachedConnection& connection);
    CXResult OpenSSL(const CXString& host, CXHTTPCachedConnection& connection);
    CXResult MakeSSLContext();
    void Resolve(const CXString& name, CXString& out);
    void DropIdleConnections();
    void AddCredentials(const CXURI& uri);
    CXResult Send(const CXURI& uri, CXHTTPCachedConnection& connection, CXStringEdit* debugText,
                  const CXHTTPProgress& progress);

    CXStringEdit m_responseText;
    CXStream* m_outputStream = nullptr; // for the length of one call
    int32_t m_status = 0;
    std::vector<CXHTTPCookie> m_cookies; // of the request under way
    HeaderList m_responseHeaders;
    HeaderList m_requestHeaders;
    std::unique_ptr<CXSSLContext> m_sslContext; // outlives the connections
    CXString m_proxySpec;
    CXSocketAddress m_proxyAddress; // family 0: not looked up, or no proxy
    DNSResolverCore* m_resolver = nullptr;
    bool m_verifyHost = true;
    CXGenericEventRef m_cancelEvent;
    std::vector<CXHTTPCookie> m_cookieJar;
    Connections m_connections;
};

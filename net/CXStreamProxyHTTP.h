// A tunnel through an HTTP proxy, and what its "host:port" text means.
#pragma once

#include "core/CXString.h"
#include "net/CXStreamTCP.h"

class DNSResolverCore;

/// A socket stream that asks a proxy for a tunnel; once open, its bytes go to and from the host
/// behind the proxy. Whether the proxy refused is not looked at: then what is spoken through the
/// tunnel fails.
class CXStreamProxyHTTP : public CXStreamTCP {
public:
    /// Connects to the proxy, waiting at most 10,000 ms, and asks for a tunnel to `host`. A proxy
    /// that answers with fewer bytes than a head leaves the stream closed.
    void Open(const CXString& host, int32_t port, const CXSocketAddress& proxyAddress);

    /// Reads "host:port" and looks the host up; without a number behind the colon the port is 8080.
    /// kCXResultInvalidArgument for anything that gives no address.
    static CXResult FindProxy(const CXString& proxySpec, DNSResolverCore& resolver,
                              CXSocketAddress& out);
};

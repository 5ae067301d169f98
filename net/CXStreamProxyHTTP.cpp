#include "net/CXStreamProxyHTTP.h"

#include "core/CXText.h"
#include "net/DNSResolverCore.h"

namespace {

constexpr uint32_t kConnectTimeoutMs = 10000;
constexpr uint32_t kTransferTimeoutMs = 45000;
constexpr int64_t kDefaultPort = 8080;
constexpr int64_t kLastPort = 65535;
/// Most bytes of a proxy's reply; a proxy that talks on for ever would hold the caller for ever.
constexpr uint64_t kMaxReply = 1048576;

} // namespace

void CXStreamProxyHTTP::Open(const CXString& host, int32_t port,
                             const CXSocketAddress& proxyAddress) {
    CXStreamTCP::Open(proxyAddress, kConnectTimeoutMs);
    if (!IsOpen() || GetLastError() != kCXResultOK) {
        return;
    }
    SetSendTimeout(kTransferTimeoutMs);
    SetReceiveTimeout(kTransferTimeoutMs);
    const CXString request =
        CXString::Format("CONNECT %s:%d HTTP/1.0 \r\n\r\n", host.GetData(), port);
    Write(request.GetData(), request.GetLength());

    uint64_t lineFeeds = 0;
    uint64_t returns = 0;
    for (uint64_t bytes = 0; GetLastError() == kCXResultOK; ++bytes) {
        uint8_t byte = 0;
        if (Read(&byte, 1) != 1) {
            break;
        }
        if (bytes == kMaxReply) {
            SetError(kCXResultBadData);
            break;
        }
        if (byte == '\n') {
            ++lineFeeds;
        } else if (byte == '\r') {
            ++returns;
        } else {
            lineFeeds = returns = 0;
        }
        if (lineFeeds > 1 && lineFeeds == returns) {
            return;
        }
    }
    Close();
}

CXResult CXStreamProxyHTTP::FindProxy(const CXString& proxySpec, DNSResolverCore& resolver,
                                      CXSocketAddress& out) {
    const int64_t colon = proxySpec.FindChar(':');
    if (colon <= 0) {
        return kCXResultInvalidArgument;
    }
    const CXString host = proxySpec.Left(colon);
    const absl::string_view portText = proxySpec.View().substr(static_cast<size_t>(colon) + 1);
    if (portText.empty()) {
        return kCXResultInvalidArgument;
    }
    const absl::string_view digits = portText.substr(portText[0] == '-' ? 1 : 0);
    const bool isNumber =
        !digits.empty() && digits.find_first_not_of("0123456789") == absl::string_view::npos;
    // A number too large to be read is out of range like any other.
    const int64_t port = isNumber ? ToInt64(portText, 0) : kDefaultPort;
    if (port < 1 || port > kLastPort) {
        return kCXResultInvalidArgument;
    }
    CXString resolved;
    resolver.Resolve(host, resolved);
    if (resolved.IsEmpty()) {
        return kCXResultInvalidArgument;
    }
    const CXSocketAddress address =
        CXSocketAddress::FromText(resolved, static_cast<uint16_t>(port));
    if (address.IsNone()) {
        return kCXResultInvalidArgument;
    }
    out = address;
    return kCXResultOK;
}

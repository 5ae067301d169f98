#include "net/CXHTTPConnection.h"

#include "core/CXEncoding.h"
#include "core/CXText.h"
#include "core/CXTime.h"
#include "net/CXAddressMask.h"
#include "net/CXHTTPExchange.h"
#include "runtime/CXGenericEventContextThread.h"
#include "stream/CXStreamDynamicBuffer.h"

#include <atomic>

namespace {

constexpr int32_t kPortHTTP = 80;
constexpr int32_t kPortHTTPS = 443;

/// Of a stream whose size can be relied on as the place to go on from.
constexpr uint32_t kResumable = kCXStreamSizeKnown | kCXStreamCanSkip;

/// While it lives, the cancel event closes the connection.
class CancelGuard {
public:
    CancelGuard(const CXGenericEventRef& event, const CXHTTPCachedConnection& connection)
        : m_connection(connection), m_isArmed(event.HasEvent()) {
        if (m_isArmed) {
            CXGenericEventContextThread::GetSingleton()->AddCallback(event, this, Fire, nullptr);
        }
    }
    ~CancelGuard() { Disarm(); }
    CancelGuard(const CancelGuard&) = delete;
    CancelGuard& operator=(const CancelGuard&) = delete;

    /// Waits for a callback that is running. True if the connection has been closed.
    bool Disarm() {
        if (m_isArmed) {
            m_isArmed = false;
            CXGenericEventContextThread::GetSingleton()->RemoveCallback(this, Fire, nullptr);
        }
        return m_hasFired;
    }

private:
    static int Fire(void* target, void* /*userData*/) {
        CancelGuard* guard = static_cast<CancelGuard*>(target);
        guard->m_hasFired = true;
        guard->m_connection.Abort();
        return 0;
    }

    const CXHTTPCachedConnection& m_connection;
    bool m_isArmed;
    std::atomic<bool> m_hasFired{false};
};

/// Puts a value back at the end of a scope.
template <typename Value> class Restorer {
public:
    explicit Restorer(Value& value) : m_value(value), m_saved(value) {}
    ~Restorer() { m_value = std::move(m_saved); }
    Restorer(const Restorer&) = delete;
    Restorer& operator=(const Restorer&) = delete;

private:
    Value& m_value;
    Value m_saved;
};

CXString FindIn(const CXHTTPConnection::HeaderList& headers, absl::string_view name) {
    for (const auto& [key, value] : headers) {
        if (EqualsNoCase(key, name)) {
            return value;
        }
    }
    return CXString();
}

bool IsRedirect(int32_t status) {
    return status == 300 || status == 301 || status == 302 || status == 307 || status == 308;
}

CXResult ResultOfStatus(int32_t status) {
    switch (status) {
    case 200:
    case 206:
        return kCXResultOK;
    case 404:
        return kCXResultNotFound;
    default:
        return kCXResultInvalidArgument;
    }
}

} // namespace

CXHTTPConnection::CXHTTPConnection() = default;
CXHTTPConnection::~CXHTTPConnection() = default;

CXResult CXHTTPConnection::Get(const CXURI& uri, CXStream* output, CXStringEdit* debugText,
                               const CXHTTPProgress& progress) {
    const uint64_t position = output != nullptr ? output->GetPosition() : 0;
    const uint64_t size = output != nullptr ? output->GetSize() : 0;
    if (debugText != nullptr) {
        debugText->Clear();
    }
    m_status = 0;
    m_outputStream = output;
    CXURI current = uri;
    CXResult result = kCXResultBadData;
    for (int attempt = 0; attempt < kMaxRequests + 1; ++attempt) {
        if (attempt > 0 && output != nullptr) {
            output->SetSize(size);
            output->ClearEnd();
            output->Seek(static_cast<int64_t>(position), kCXSeekStart);
        }
        if (attempt == kMaxRequests) {
            result = kCXResultBadData;
            break;
        }
        result = Attempt(current, debugText, progress);
        if (result != kCXResultOK) {
            break;
        }
        if (!IsRedirect(m_status)) {
            result = ResultOfStatus(m_status);
            break;
        }
        result = FollowRedirect(current);
        if (result != kCXResultOK) {
            break;
        }
    }
    m_outputStream = nullptr;
    if (result == kCXResultOK && debugText != nullptr) {
        debugText->Clear();
    }
    return result;
}

CXResult CXHTTPConnection::GetText(const CXURI& uri, CXString* text,
                                   const CXHTTPProgress& progress) {
    CXStreamDynamicBuffer buffer;
    const CXResult result = Get(uri, &buffer, nullptr, progress);
    const uint64_t size = buffer.GetSize();
    *text = size == 0 ? CXString()
                      : CXString(reinterpret_cast<const char*>(buffer.GetData()),
                                 static_cast<size_t>(size));
    return result;
}

CXResult CXHTTPConnection::Attempt(const CXURI& uri, CXStringEdit* debugText,
                                   const CXHTTPProgress& progress) {
    DropIdleConnections();
    const bool tls = EqualsNoCase(uri.scheme, "https");
    if (!tls && !EqualsNoCase(uri.scheme, "http")) {
        return kCXResultUnusable;
    }
    const Restorer<HeaderList> restorer(m_requestHeaders);
    CXResult result = PrepareProxy();
    if (result != kCXResultOK) {
        return result;
    }
    const int32_t port = uri.port != 0 ? uri.port : tls ? kPortHTTPS : kPortHTTP;
    Connections::iterator connection;
    result = GetConnection(uri.host, port, tls, connection);
    if (result != kCXResultOK) {
        return result;
    }
    CXStream& stream = connection->GetStream();
    CancelGuard guard(m_cancelEvent, *connection);
    RemoveRequestHeader("Connection");
    SetRequestHeader("Connection", "Keep-Alive");
    AddCredentials(uri);
    m_cookies = m_cookieJar;
    result = Send(uri, *connection, debugText, progress);
    // A body of unknown length that a cancel cut off looks like a whole one.
    const bool isCancelled = guard.Disarm();
    if (result == kCXResultOK) {
        result = stream.GetLastError();
    }
    if (result == kCXResultOK && isCancelled) {
        result = kCXResultEndOfStream;
    }
    m_cookieJar = m_cookies;
    if (result != kCXResultOK || !stream.IsOpen() ||
        !EqualsNoCase(GetResponseHeader("Connection"), "Keep-Alive")) {
        m_connections.erase(connection);
    }
    return result;
}

CXResult CXHTTPConnection::FollowRedirect(CXURI& uri) const {
    CXURI next{GetResponseHeader("location").View()};
    if (next.IsEmpty()) {
        return kCXResultBadData;
    }
    if (next.user.IsEmpty() && !uri.user.IsEmpty()) {
        next.user = uri.user;
        next.password = uri.password;
    }
    uri = next;
    return kCXResultOK;
}

void CXHTTPConnection::AddCredentials(const CXURI& uri) {
    if ((uri.user.IsEmpty() && uri.password.IsEmpty()) ||
        !GetRequestHeader("Authorization").IsEmpty()) {
        return;
    }
    const CXString plain = CXString::Format("%s:%s", CXURI::Decode(uri.user).GetData(),
                                            CXURI::Decode(uri.password).GetData());
    CXStringEdit value(absl::string_view("Basic "));
    CXStringEdit coded;
    Base64Encode(plain.GetData(), plain.GetLength(), coded);
    value.Append(coded);
    SetRequestHeader("Authorization", value.ToString());
    RemoveRequestHeader("Connection");
    SetRequestHeader("Connection", "Close");
}

CXResult CXHTTPConnection::Send(const CXURI& uri, CXHTTPCachedConnection& connection,
                                CXStringEdit* debugText, const CXHTTPProgress& progress) {
    CXHTTPRequest request;
    request.uri = uri;
    request.Add("host", uri.host);
    for (const auto& [name, value] : m_requestHeaders) {
        request.Add(name, value);
    }
    if (!m_cookies.empty()) {
        request.Add("cookie", CXHTTPCookie::Join(m_cookies));
    }
    if (m_outputStream != nullptr && (m_outputStream->GetFlags() & kResumable) == kResumable &&
        m_outputStream->GetSize() > 0) {
        // The value ends its line itself, so the head ends here for a server; the headers that sort
        // behind this one, and an empty line, follow it as if they began another request.
        request.Add("range", CXString::Format("bytes=%d-\r\n",
                                              static_cast<int64_t>(m_outputStream->GetSize())));
    }

    CXStringEdit headText;
    CXHTTPReply reply;
    reply.output = m_outputStream;
    reply.progress = progress;
    reply.headText = debugText != nullptr ? &headText : nullptr;
    CXStream& stream = connection.GetStream();
    CXHTTPExchange exchange(stream, reply, connection.openLineEnd);
    const CXResult result = exchange.Run(request);
    connection.openLineEnd = exchange.GetOpenLineEnd();

    m_status = reply.status;
    m_responseText = std::move(reply.bodyText);
    CXHTTPCookie::ReadAll(reply.headers, m_cookies); // of a head that was cut off, those that came
    m_responseHeaders.assign(reply.headers.begin(), reply.headers.end());
    if (debugText != nullptr) {
        CXStringEdit head;
        CXHTTPExchange::WriteHead(request, head);
        head.NormaliseLineEndings("\n");
        AppendMaskedHead(head, *debugText);
        AppendMaskedHead(headText, *debugText);
    }
    if (EqualsNoCase(reply.Find("connection"), "close")) {
        stream.Close();
    }
    return result;
}

CXString CXHTTPConnection::GetResponseHeader(absl::string_view name) const {
    return FindIn(m_responseHeaders, name);
}

CXString CXHTTPConnection::GetRequestHeader(absl::string_view name) const {
    return FindIn(m_requestHeaders, name);
}

void CXHTTPConnection::SetRequestHeader(const CXString& name, const CXString& value) {
    m_requestHeaders.emplace_back(name, value);
}

void CXHTTPConnection::RemoveRequestHeader(absl::string_view name) {
    for (size_t index = 0; index < m_requestHeaders.size(); ++index) {
        if (EqualsNoCase(m_requestHeaders[index].first, name)) {
            m_requestHeaders.erase(m_requestHeaders.begin() + static_cast<std::ptrdiff_t>(index));
        }
    }
}

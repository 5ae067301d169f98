#include "net/CXStreamSSL.h"

#include "core/CXLog.h"
#include "net/CXSSLContext.h"
#include "net/OpenSSLCompat.h"
#include "runtime/CXThread.h"

#include <algorithm>
#include <limits>

namespace {

constexpr uint64_t kPiece = 16384; // also the most that one TLS record holds
constexpr uint64_t kGatheredBytes = 65536;

/// Has what OpenSSL keeps for the calling thread freed when the thread ends.
void WatchThreadEnd() {
    static thread_local bool s_watched = false;
    if (s_watched) {
        return;
    }
    s_watched = true;
    if (CXThread* thread = CXThread::GetCurrent()) {
        thread->AddEndCallback([] { OpenSSLCompat::ForgetThread(); });
    }
}

/// Whether a host may be told to a server by name: addresses in numbers may not.
bool IsName(absl::string_view host) {
    const absl::string_view last = host.substr(host.rfind('.') + 1);
    return host.find(':') == absl::string_view::npos &&
           last.find_first_not_of("0123456789") != absl::string_view::npos;
}

struct Names {
    bool any = false;
    bool match = false;
};

/// DNS names among the alternative names, from the last to the first.
Names CheckAlternativeNames(X509* certificate, absl::string_view host) {
    Names names;
    auto* stack = static_cast<GENERAL_NAMES*>(
        X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr));
    while (stack != nullptr && !names.match && sk_GENERAL_NAME_num(stack) > 0) {
        GENERAL_NAME* name = sk_GENERAL_NAME_pop(stack);
        if (name->type == GEN_DNS) {
            names.any = true;
            names.match = CXStreamSSL::MatchesName(OpenSSLCompat::GetText(name->d.dNSName), host);
        }
        GENERAL_NAME_free(name);
    }
    GENERAL_NAMES_free(stack);
    return names;
}

bool CheckCommonNames(X509* certificate, absl::string_view host) {
    const X509_NAME* subject = X509_get_subject_name(certificate);
    for (int index = -1;;) {
        index = X509_NAME_get_index_by_NID(const_cast<X509_NAME*>(subject), NID_commonName, index);
        if (index < 0) {
            return false;
        }
        const ASN1_STRING* text = X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index));
        if (CXStreamSSL::MatchesName(OpenSSLCompat::GetText(text), host)) {
            return true;
        }
    }
}

} // namespace

bool CXStreamSSL::MatchesName(absl::string_view pattern, absl::string_view name) {
    size_t consumed = 0;
    for (const char byte : pattern) {
        if (byte == '*') {
            const size_t end = std::min(name.find('.', consumed), name.size());
            if (end == consumed) {
                return false;
            }
            consumed = end;
        } else if (consumed < name.size() && name[consumed] == byte) {
            ++consumed;
        } else {
            return false;
        }
    }
    return consumed == name.size();
}

CXStreamSSL::CXStreamSSL() = default;

CXStreamSSL::~CXStreamSSL() {
    DeleteEvents();
    CXStreamSSL::Close();
}

void CXStreamSSL::SetHostName(const CXString& hostName) {
    m_hostName = hostName;
}

void CXStreamSSL::SetFlagsUnderMask(uint32_t value, uint32_t mask) {
    if ((mask & kCXStreamPartialReads) != 0) {
        const CXRecursiveLockGuard state(m_stateLock);
        m_flags = (m_flags & ~kCXStreamPartialReads) | (value & kCXStreamPartialReads);
    }
}

// ---- Opening and closing ----

void CXStreamSSL::Open(CXSSLContext* context, CXStream* inner) {
    WatchThreadEnd();
    const CXReadWriteLockGuard use(m_useLock, CXLockMode::Exclusive);
    const CXRecursiveLockGuard state(m_stateLock);
    CloseLocked();
    ResetError();
    m_flags &= ~kCXStreamEnd;
    if (inner == nullptr || context == nullptr) {
        SetError(kCXResultInvalidArgument);
        return;
    }
    if (!Start(*context, *inner)) {
        CXSSLContext::LogError();
        CloseLocked();
        SetError(kCXResultAccessDenied);
        return;
    }
    ShakeHands();
    if (m_lastError != kCXResultOK) {
        CloseLocked();
        SetError(kCXResultAccessDenied);
    } else if (!m_hostName.IsEmpty() && !VerifyPeer()) {
        CloseLocked();
    }
}

bool CXStreamSSL::Start(CXSSLContext& context, CXStream& inner) {
    ERR_clear_error();
    m_ssl = context.GetNative() != nullptr ? SSL_new(context.GetNative()) : nullptr;
    if (m_ssl == nullptr) {
        return false;
    }
    m_readBio = BIO_new(BIO_s_mem());
    m_writeBio = BIO_new(BIO_s_mem());
    if (m_readBio == nullptr || m_writeBio == nullptr) {
        BIO_free(m_readBio);
        BIO_free(m_writeBio);
        SSL_free(m_ssl);
        m_ssl = nullptr;
        return false;
    }
    SSL_set_bio(m_ssl, m_readBio, m_writeBio);
    SSL_set_connect_state(m_ssl);
    if (!m_hostName.IsEmpty() && IsName(m_hostName)) {
        SSL_set_tlsext_host_name(m_ssl, m_hostName.GetData());
    }
    m_context = &context;
    m_inner = &inner;
    m_waitingForData = false;
    m_bytesSinceFlush = 0;
    inner.SetFlagsUnderMask(kCXStreamPartialReads, kCXStreamPartialReads);
    m_flags |= kCXStreamIsOpen;
    return true;
}

void CXStreamSSL::ShakeHands() {
    while (m_lastError == kCXResultOK) {
        ERR_clear_error();
        const int answer = SSL_do_handshake(m_ssl);
        if (answer > 0 || HandleOutcome(answer, false)) {
            return;
        }
    }
}

bool CXStreamSSL::VerifyPeer() {
    Pump(false);
    X509* certificate = OpenSSLCompat::GetPeerCertificate(m_ssl);
    if (certificate == nullptr) {
        CXLog("OpenSSL certificate missing.");
        return false;
    }
    const Names names = CheckAlternativeNames(certificate, m_hostName);
    const bool match = names.any ? names.match : CheckCommonNames(certificate, m_hostName);
    X509_free(certificate);
    if (!match) {
        CXLog("OpenSSL certificate does not match domain.");
        return false;
    }
    const long verified = SSL_get_verify_result(m_ssl);
    if (verified == X509_V_OK) {
        return true;
    }
    if (verified == X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT ||
        verified == X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN) {
        CXLog("OpenSSL rejected self-signed certificate.");
    } else {
        CXLogFormat("OpenSSL failed to verify certificate: %ld", verified);
    }
    return false;
}

void CXStreamSSL::Close() {
    WatchThreadEnd();
    const CXReadWriteLockGuard use(m_useLock, CXLockMode::Exclusive);
    const CXRecursiveLockGuard state(m_stateLock);
    CloseLocked();
}

void CXStreamSSL::CloseWithInner() {
    CXStream* inner;
    {
        const CXRecursiveLockGuard state(m_stateLock);
        inner = m_inner;
    }
    if (inner != nullptr) {
        inner->Close();
    }
    Close();
}

void CXStreamSSL::CloseLocked() {
    if (m_ssl == nullptr) {
        return;
    }
    Pump(false);
    m_flags &= ~(kCXStreamIsOpen | kCXStreamPartialReads);
    SSL_free(m_ssl);
    m_ssl = nullptr;
    m_readBio = nullptr;
    m_writeBio = nullptr;
    m_inner->SetFlagsUnderMask(0, kCXStreamPartialReads);
    m_inner = nullptr;
    m_context = nullptr;
}

// ---- Between OpenSSL and the inner stream ----

void CXStreamSSL::Pump(bool waitForData) {
    while (BIO_ctrl_pending(m_writeBio) != 0) {
        m_stateLock.Unlock();
        const bool sent = SendPiece();
        m_stateLock.Lock();
        if (!sent) {
            SetError(CXResultCertainFailure(m_inner->GetLastError()));
            break;
        }
    }
    m_bytesSinceFlush = 0;
    if (m_waitingForData && waitForData && m_lastError == kCXResultOK) {
        m_stateLock.Unlock();
        ReceivePiece();
        m_stateLock.Lock();
    }
}

bool CXStreamSSL::SendPiece() {
    uint8_t piece[kPiece];
    // Held over both steps, so that no other thread's bytes overtake these.
    const CXCriticalSectionGuard guard(m_writeLock);
    int count = 0;
    {
        const CXRecursiveLockGuard state(m_stateLock);
        count = BIO_read(m_writeBio, piece, sizeof(piece));
    }
    uint64_t done = 0;
    while (count > 0 && done < static_cast<uint64_t>(count)) {
        const uint64_t put = m_inner->Write(piece + done, static_cast<uint64_t>(count) - done);
        if (put == 0) {
            return false;
        }
        done += put;
    }
    return true;
}

void CXStreamSSL::ReceivePiece() {
    uint8_t piece[kPiece];
    const CXRecursiveLockGuard guard(m_readLock);
    {
        const CXRecursiveLockGuard state(m_stateLock);
        if (!m_waitingForData) {
            return; // another thread has fetched some meanwhile
        }
    }
    const uint64_t got = m_inner->Read(piece, sizeof(piece));
    const CXRecursiveLockGuard state(m_stateLock);
    m_waitingForData = false;
    if (got != 0) {
        BIO_write(m_readBio, piece, static_cast<int>(got));
    } else {
        SetError(m_inner->GetLastError());
    }
}

bool CXStreamSSL::HandleOutcome(int answer, bool mayEnd) {
    switch (SSL_get_error(m_ssl, answer)) {
    case SSL_ERROR_NONE:
        return true;
    case SSL_ERROR_WANT_READ:
        m_waitingForData = true;
        Pump(true);
        return false;
    case SSL_ERROR_WANT_WRITE:
        Pump(false);
        return false;
    case SSL_ERROR_ZERO_RETURN:
        if (mayEnd) {
            MarkEnd();
            return false;
        }
        break;
    default:
        break;
    }
    CXSSLContext::LogError();
    MarkEnd();
    return false;
}

// ---- Traffic ----

bool CXStreamSSL::CanTransfer(const void* data, uint64_t count) {
    if (m_ssl == nullptr) {
        SetError(kCXResultAlreadyOpen);
    } else if (data == nullptr && count != 0) {
        SetError(kCXResultInvalidArgument);
    }
    return m_ssl != nullptr && m_lastError == kCXResultOK;
}

uint64_t CXStreamSSL::BufferedRead(void* data, uint64_t count) {
    WatchThreadEnd();
    const CXReadWriteLockGuard use(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard state(m_stateLock);
    if (!CanTransfer(data, count)) {
        return 0;
    }
    uint8_t* to = static_cast<uint8_t*>(data);
    uint64_t done = 0;
    while (done < count && m_lastError == kCXResultOK) {
        const uint64_t wanted = std::min<uint64_t>(count - done, std::numeric_limits<int>::max());
        ERR_clear_error();
        const int answer = SSL_read(m_ssl, to + done, static_cast<int>(wanted));
        if (answer > 0) {
            done += static_cast<uint64_t>(answer);
            if ((m_flags & kCXStreamPartialReads) != 0) {
                break;
            }
        } else {
            HandleOutcome(answer, true);
        }
    }
    return done;
}

uint64_t CXStreamSSL::BufferedWrite(const void* data, uint64_t count) {
    WatchThreadEnd();
    const CXReadWriteLockGuard use(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard state(m_stateLock);
    if (!CanTransfer(data, count)) {
        return 0;
    }
    const uint8_t* from = static_cast<const uint8_t*>(data);
    uint64_t done = 0;
    while (done < count && m_lastError == kCXResultOK) {
        // A record at a time, so that no more than the gathered bytes wait in memory.
        const uint64_t wanted = std::min(count - done, kPiece);
        ERR_clear_error();
        const int answer = SSL_write(m_ssl, from + done, static_cast<int>(wanted));
        if (answer > 0) {
            done += static_cast<uint64_t>(answer);
            m_bytesSinceFlush += static_cast<uint64_t>(answer);
            if (m_bytesSinceFlush > kGatheredBytes) {
                Pump(false);
            }
        } else {
            HandleOutcome(answer, false);
        }
    }
    return done;
}

void CXStreamSSL::Flush(uint32_t /*options*/) {
    WatchThreadEnd();
    const CXReadWriteLockGuard use(m_useLock, CXLockMode::ShareOpen);
    const CXRecursiveLockGuard state(m_stateLock);
    if (m_ssl != nullptr) {
        Pump(false);
    }
}

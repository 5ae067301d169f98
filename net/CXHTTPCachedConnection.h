// An open connection that later requests may use again.
#pragma once

#include "core/CXString.h"
#include "net/CXStreamSSL.h"
#include "net/CXStreamTCP.h"

#include <cstdint>
#include <memory>

struct CXHTTPCachedConnection {
    CXString host;    ///< empty: a plain proxy's, which serves every host
    int32_t port = 0; ///< 0 likewise
    bool tls = false;
    int64_t lastUsed = 0; ///< ms since the Unix epoch; when its last request began
    std::unique_ptr<CXStreamTCP> tcp;
    std::unique_ptr<CXStreamSSL> ssl; ///< over `tcp`, so destroyed first; null for plain
    uint8_t openLineEnd = 0;          ///< see CXHTTPExchange::GetOpenLineEnd

    /// The one for traffic.
    CXStream& GetStream() const { return ssl != nullptr ? static_cast<CXStream&>(*ssl) : *tcp; }
    /// Ends what another thread reads or writes here.
    void Abort() const {
        if (ssl != nullptr) {
            ssl->CloseWithInner();
        } else {
            tcp->Close();
        }
    }
};

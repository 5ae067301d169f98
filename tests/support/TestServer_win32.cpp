#include "tests/support/TestServer.h"

#include "core/win32_api.h"

#include <winsock2.h>

void HalfCloseSocket(CXSocketHandle socket) {
    ::shutdown(static_cast<SOCKET>(socket), SD_SEND);
}

#include "tests/support/TestServer.h"

#include <sys/socket.h>

void HalfCloseSocket(CXSocketHandle socket) {
    ::shutdown(static_cast<int>(socket), SHUT_WR);
}

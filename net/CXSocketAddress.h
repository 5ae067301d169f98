// An IPv4 address with a port, laid out like the platforms' own socket address.
#pragma once

#include "core/CXString.h"

#include <cstdint>

/// 16 bytes. `port` and `address` are in network order. Family 0 stands for no address.
struct CXSocketAddress {
    static constexpr uint16_t kFamilyIPv4 = 2;

    uint16_t family = 0;
    uint16_t port = 0;
    uint32_t address = 0;
    uint8_t zero[8] = {};

    /// Reads "%d.%d.%d.%d"; of each number the low byte counts. A text without four numbers gives
    /// family 0. `hostPort` is in the machine's order.
    static CXSocketAddress FromText(const CXString& text, uint16_t hostPort);
    static CXSocketAddress Loopback(uint16_t hostPort);
    /// The four numbers as "%d.%d.%d.%d", without the port.
    CXString ToText() const;
    /// The port in the machine's order.
    uint16_t GetPort() const;
    bool IsNone() const { return family == 0; }

    /// Reads four decimal numbers with dots between them, as a scanf of "%d.%d.%d.%d" would: blanks
    /// and a sign may stand before each, and what follows the last is not looked at.
    static bool ScanFourNumbers(absl::string_view text, int32_t (&numbers)[4]);
};

static_assert(sizeof(CXSocketAddress) == 16);

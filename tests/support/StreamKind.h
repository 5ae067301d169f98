// One kind of stream behind one face, for the tests that run over several of them.
#pragma once

#include "stream/CXStream.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

/// `count` bytes without short periods; `seed` tells contents apart.
inline Bytes MakeBytes(size_t count, uint32_t seed = 1) {
    Bytes bytes(count);
    uint32_t state = seed * 2654435761U + 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

/// A stream under test and everything it stands on.
class StreamUnderTest {
public:
    virtual ~StreamUnderTest() = default;
    virtual CXStream& Get() = 0;
    /// The bytes where they are really stored, or what the peer was sent. The stream is of no use
    /// afterwards.
    virtual Bytes Stored() { return {}; }
};

/// What a position behind the end does.
enum class PastEnd : uint8_t { Kept, Clamped, Refused };

struct StreamKind {
    const char* name;
    /// A stream at position 0 over the given bytes.
    std::function<std::unique_ptr<StreamUnderTest>(const Bytes&)> make;
    uint32_t flags;
    bool seeks = true;
    bool writes = false;
    bool grows = false;    ///< writes behind the end extend it
    bool resizes = false;  ///< takes SetSize
    bool sizeKnown = true; ///< GetRemaining answers
    PastEnd pastEnd = PastEnd::Clamped;
    bool sizeMovesToEnd = false; ///< SetSize leaves the position at the new end
    bool keepsCutBytes = false;  ///< bytes cut off by SetSize come back in a gap
    bool closedIsAlreadyOpen = false;
    bool duplex = false;          ///< writes go to a peer, and there is no position
    bool marksEnd = true;         ///< a short read at the end sets kCXStreamEnd
    bool remainingIsZero = false; ///< GetRemaining answers 0 though the size is unknown
    bool readableAtEnd = false;   ///< the event "can be read" holds at the end
    bool dryIsNoFault = false;    ///< more may come, so that a short read is no failure
    bool drainsClosed = false;    ///< `Close` leaves what is held to be read

    friend void PrintTo(const StreamKind& kind, std::ostream* out) { *out << kind.name; }
};

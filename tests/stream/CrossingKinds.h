// The streams that cross threads, for the conformance suite, and two multiplexers to test with.
#pragma once

#include "stream/CXStreamMultiplexer.h"
#include "stream/CXStreamPipe.h"
#include "tests/support/StreamKind.h"

const std::vector<StreamKind>& CrossingStreamKinds();

/// Everything that a stream whose reads don't wait still gives, waiting for it up to its end or
/// until `count` bytes came.
Bytes Drain(CXStreamQueued& stream, size_t count = SIZE_MAX);

/// Two running multiplexers that talk over a pipe.
struct MultiplexerPair {
    CXStreamPipe pipe;
    CXStreamMultiplexer left{pipe.GetEnd(0), &pipe.GetEnd(0).GetArrivalEvent()};
    CXStreamMultiplexer right{pipe.GetEnd(1), &pipe.GetEnd(1).GetArrivalEvent()};

    MultiplexerPair() {
        left.Start();
        right.Start();
    }
};

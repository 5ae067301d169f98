// The streams of this layer, for the tests that run over all of them.
#pragma once

#include "tests/support/StreamKind.h"

/// The zlib stream of `bytes`.
Bytes Deflated(const Bytes& bytes, int level = 6);

const std::vector<StreamKind>& AllStreamKinds();

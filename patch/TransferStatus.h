// What a download tells about its rate and the time left.
#pragma once

#include "core/CXStringEdit.h"
#include "stream/CXStream.h"

#include <cstdint>

/// Appends the localised texts of the rate and of the time left to `text`, at the moment `nowMs`
/// (milliseconds since the Unix epoch). Nothing in the first five seconds, when a rate means
/// little; no time left where the whole isn't known. Both are of this one transfer: what an earlier
/// one left in the file doesn't count. The texts bring their own blanks.
void AppendTransferStatus(const CXStreamProgressCallbackData& data, int64_t nowMs,
                          CXStringEdit& text);

#include "stream/StreamProcessor.h"

StreamProcessor::~StreamProcessor() = default;

void StreamProcessor::Finish() {}

CXResult StreamProcessor::ProcessInto(void* /*data*/, uint64_t /*count*/, uint64_t& produced) {
    produced = 0;
    return kCXResultNotSupported;
}

// Fuzzes what a multiplexer does with its peer's bytes, against a second reader of the protocol
// that has the whole input before it.

#include "core/CXLog.h"
#include "stream/CXStreamMultiplexer.h"
#include "stream/CXStreamPipe.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>

namespace {

void Check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

struct Expected {
    std::map<uint32_t, std::string> channels;
    std::map<uint32_t, bool> closed;
    CXResult result = kCXResultEndOfStream;
};

Expected Predict(const uint8_t* data, size_t size) {
    Expected expected;
    size_t at = 0;
    const auto number = [&](uint32_t& out) {
        if (size - at < sizeof(out)) {
            return false;
        }
        out = 0;
        for (int shift = 0; shift < 32; shift += 8) {
            out |= static_cast<uint32_t>(data[at++]) << shift;
        }
        return true;
    };
    while (at < size) {
        const uint8_t command = data[at++];
        uint32_t id = 0;
        uint32_t length = 0;
        if (command < 1 || command > 3) {
            expected.result = kCXResultBadData;
            break;
        }
        if (!number(id) || (command == 3 && !number(length))) {
            break;
        }
        if (command == 1) {
            expected.channels[id].clear();
            expected.closed[id] = false;
        } else if (command == 2) {
            expected.closed[id] = true;
        } else {
            const size_t held = std::min<size_t>(length, size - at);
            const auto found = expected.channels.find(id);
            if (found != expected.channels.end() && !expected.closed[id]) {
                found->second.append(reinterpret_cast<const char*>(data + at), held);
            }
            at += held;
        }
    }
    return expected;
}

void IgnoreLine(const char* /*line*/) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CXSetLogSink(IgnoreLine);
    CXStreamPipe pipe;
    CXStreamPipe::End& underlying = pipe.GetEnd(1);
    CXStreamMultiplexer multiplexer(underlying, &underlying.GetArrivalEvent());
    // In pieces, whose seams lie anywhere in the commands.
    const size_t piece = size % 13 + 1;
    for (size_t at = 0; at < size; at += piece) {
        pipe.GetEnd(0).Write(data + at, std::min(piece, size - at));
    }
    pipe.GetEnd(0).Close();
    multiplexer.Proc();

    const Expected expected = Predict(data, size);
    Check(multiplexer.GetEndResult() == expected.result);
    Check(multiplexer.GetChannelCount() == expected.channels.size());
    for (const auto& [id, content] : expected.channels) {
        const CXStreamMultiplexer::Channel channel = multiplexer.TakeChannel();
        Check(channel && channel->GetId() == id && channel->GetSize() == content.size());
        std::string bytes(content.size() + 1, '\0');
        Check(channel->Read(bytes.data(), bytes.size()) == content.size() && channel->IsAtEnd());
        bytes.resize(content.size());
        Check(bytes == content);
        channel->Close();
    }
    Check(multiplexer.GetChannelCount() == 0 && !multiplexer.TakeChannel());
    return 0;
}

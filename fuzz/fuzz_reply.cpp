// Replies: any bytes end in a result, whatever the pieces in which they come; what is read as text
// and what is written to a stream is the same, and never more than came.
#include "core/CXLog.h"
#include "net/CXAddressMask.h"
#include "net/CXHTTPCookie.h"
#include "net/CXHTTPExchange.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/net/TranscriptStream.h"

#include <cstdlib>

namespace {

void Check(bool holds) {
    if (!holds) {
        abort();
    }
}

struct Outcome {
    CXResult result;
    int32_t status;
    std::string body;
    CXHTTPHeaders headers;
};

Outcome Play(const std::string& bytes, size_t step, bool withOutput) {
    TranscriptStream connection(bytes, step, false);
    CXStreamDynamicBuffer output;
    CXStringEdit headText;
    CXHTTPReply reply;
    reply.output = withOutput ? &output : nullptr;
    reply.headText = &headText;
    CXHTTPRequest request;
    request.uri = CXURI("http://host/path");
    Outcome outcome;
    outcome.result = CXHTTPExchange(connection, reply).Run(request);
    outcome.status = reply.status;
    outcome.headers = reply.headers;
    outcome.body = withOutput ? std::string(reinterpret_cast<const char*>(output.GetData()),
                                            static_cast<size_t>(output.GetSize()))
                              : std::string(reply.bodyText.View());
    CXStringEdit masked;
    AppendMaskedHead(headText, masked);
    std::vector<CXHTTPCookie> cookies;
    CXHTTPCookie::ReadAll(reply.headers, cookies);
    return outcome;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    CXSetLogSink([](const char*) {});
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const Outcome whole = Play(bytes, bytes.size() + 1, true);
    Check(whole.body.size() <= bytes.size());
    for (const size_t step : {size_t{1}, size_t{3}}) {
        const Outcome pieces = Play(bytes, step, true);
        Check(pieces.result == whole.result && pieces.status == whole.status &&
              pieces.body == whole.body && pieces.headers == whole.headers);
    }
    const Outcome text = Play(bytes, 5, false);
    // A length beyond what is kept in memory is refused before anything is read.
    Check(text.result == kCXResultNoResources ||
          (text.result == whole.result && text.body == whole.body));
    return 0;
}

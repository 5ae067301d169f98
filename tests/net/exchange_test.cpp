// One exchange: requests byte for byte, replies from tests/net/data/replies.txt.
#include "core/CXText.h"
#include "net/CXHTTPExchange.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/net/TranscriptStream.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <vector>

namespace {

struct ReplyCase {
    std::string name;
    std::multimap<std::string, std::string> expected;
    std::string reply;

    bool Says(const char* key) const { return expected.count(key) != 0; }
    std::string Get(const char* key) const {
        return Says(key) ? expected.find(key)->second : std::string();
    }
};

std::string Unescape(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char code = text[++i];
        if (code == 'x') {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += code == 'r' ? '\r' : code == 'n' ? '\n' : code == 't' ? '\t' : code;
        }
    }
    return out;
}

/// A line of a reply; "*COUNT TEXT" anywhere in it repeats what follows, to the line's end.
std::string ReplyLine(const std::string& line) {
    const size_t star = line.find('*');
    if (star == std::string::npos || star + 1 >= line.size() || !isdigit(line[star + 1])) {
        return Unescape(line);
    }
    const size_t blank = line.find(' ', star);
    std::string out = Unescape(line.substr(0, star));
    const std::string piece = Unescape(line.substr(blank + 1));
    for (int count = std::stoi(line.substr(star + 1)); count > 0; --count) {
        out += piece;
    }
    return out;
}

std::vector<ReplyCase> LoadCases() {
    std::ifstream file("tests/net/data/replies.txt", std::ios::binary);
    std::vector<ReplyCase> cases;
    bool inReply = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("== ", 0) == 0) {
            cases.emplace_back();
            cases.back().name = line.substr(3);
            inReply = false;
        } else if (!cases.empty() && inReply) {
            cases.back().reply += ReplyLine(line);
        } else if (!cases.empty() && line == "reply") {
            inReply = true;
        } else if (!line.empty() && line[0] != '#') {
            const size_t blank = std::min(line.find(' '), line.size());
            cases.back().expected.emplace(line.substr(0, blank),
                                          line.substr(std::min(blank + 1, line.size())));
        }
    }
    return cases;
}

struct Played {
    CXResult result;
    CXHTTPReply reply;
    std::string body;
    bool hasWaited;
};

Played Play(const std::string& text, size_t step, bool isKept, bool withOutput) {
    TranscriptStream connection(text, step, isKept);
    Played played;
    CXStreamDynamicBuffer output;
    played.reply.output = withOutput ? &output : nullptr;
    CXHTTPRequest request;
    request.uri = CXURI("http://host/");
    played.result = CXHTTPExchange(connection, played.reply).Run(request);
    played.hasWaited = connection.hasWaited;
    played.body = withOutput ? std::string(reinterpret_cast<const char*>(output.GetData()),
                                           static_cast<size_t>(output.GetSize()))
                             : std::string(played.reply.bodyText.View());
    return played;
}

} // namespace

TEST(Exchange, RepliesComeOutTheSameHoweverTheyArrive) {
    const std::vector<ReplyCase> cases = LoadCases();
    ASSERT_GT(cases.size(), 30U);
    for (const ReplyCase& one : cases) {
        for (const size_t step : {size_t{1}, size_t{7}, size_t{1} << 24}) {
            for (const bool withOutput : {false, true}) {
                const bool isTooSlow = one.reply.size() > 100000 && (step == 1 || withOutput);
                if (isTooSlow || one.Says(withOutput ? "text-only" : "output-only")) {
                    continue;
                }
                SCOPED_TRACE(one.name + ", in pieces of " + std::to_string(step) +
                             (withOutput ? ", to a stream" : ""));
                const LogCapture log;
                const Played played = Play(one.reply, step, one.Says("kept"), withOutput);
                EXPECT_EQ(std::to_string(played.result),
                          one.Says("result") ? one.Get("result") : "0");
                EXPECT_EQ(played.body, one.Get("body"));
                EXPECT_FALSE(played.hasWaited);
                if (one.Says("status")) {
                    EXPECT_EQ(std::to_string(played.reply.status), one.Get("status"));
                }
                std::string headers = "|";
                for (const auto& header : played.reply.headers) {
                    headers += std::string(header.first.View()) + "=" +
                               std::string(header.second.View()) + "|";
                }
                const auto wanted = one.expected.equal_range("header");
                for (auto header = wanted.first; header != wanted.second; ++header) {
                    EXPECT_NE(headers.find("|" + header->second + "|"), std::string::npos)
                        << headers;
                }
                const std::vector<std::string> lines = log.Get();
                EXPECT_EQ(lines.empty() ? "" : lines[0], one.Get("log"));
            }
        }
    }
}

TEST(Exchange, AConnectionThatEndsAtAnyByteIsNeverTakenForAWholeReply) {
    for (const ReplyCase& whole : LoadCases()) {
        if (whole.Says("result") || !whole.Says("kept") || whole.reply.size() > 1000) {
            continue;
        }
        // A head may end at its last carriage return, the chunks at theirs.
        for (size_t length = 0; length + 1 < whole.reply.size(); ++length) {
            SCOPED_TRACE(whole.name + ", cut after " + std::to_string(length));
            const LogCapture log;
            const Played played = Play(whole.reply.substr(0, length), 5, false, true);
            EXPECT_EQ(played.result, kCXResultEndOfStream);
            EXPECT_EQ(whole.Get("body").rfind(played.body, 0), 0U);
        }
    }
}

TEST(Exchange, TheRequestIsWrittenInOrderOfLowerCaseNames) {
    CXHTTPRequest request;
    request.method = "get";
    request.uri = CXURI("http://user!pw@host:8080/a%20b/c?x=1&y=2");
    request.Add("X-late-THING", "1");
    request.Add("host", "host");
    request.Add("range", "bytes=5-\r\n");
    request.Add("Accept", "b");
    request.Add("ACCEPT", "a");
    TranscriptStream connection("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", 100, true);
    CXHTTPReply reply;
    EXPECT_EQ(CXHTTPExchange(connection, reply).Run(request), kCXResultOK);
    EXPECT_EQ(connection.sent, "GET /a%20b/c?x=1&y=2 HTTP/1.1\r\n"
                               "Accept: b\r\nAccept: a\r\nHost: host\r\n"
                               "Range: bytes=5-\r\n\r\nX-Late-Thing: 1\r\n\r\n");
}

TEST(Exchange, ProgressCountsTheBodyAndCanEndIt) {
    const std::string body(100000, 'x');
    const std::string start = "HTTP/1.1 200 OK\r\n";
    const std::string forms[] = {
        start + "Content-Length: 100000\r\n\r\n" + body, start + "\r\n" + body,
        start + "Transfer-Encoding: chunked\r\n\r\n186a0\r\n" + body + "\r\n0\r\n\r\n"};
    for (const std::string& form : forms) {
        const bool isKnown = &form == &forms[0];
        for (const CXResult wanted : {kCXResultOK, kCXResultCancelled}) {
            TranscriptStream connection(form, 10000, false);
            CXStreamDynamicBuffer output;
            CXHTTPReply reply;
            reply.output = &output;
            CXStreamProgressCallbackData last = {};
            reply.progress = [&](const CXStreamProgressCallbackData& data) {
                last = data;
                return wanted == kCXResultOK || data.bytesDone < 40000;
            };
            EXPECT_EQ(CXHTTPExchange(connection, reply).Run(CXHTTPRequest()), wanted);
            EXPECT_EQ(output.GetLastError(), wanted);
            EXPECT_EQ(last.sizeUnknown, isKnown ? 0 : 1);
            EXPECT_EQ(last.bytesDone, output.GetSize());
            EXPECT_EQ(output.GetSize() == body.size(), wanted == kCXResultOK);
            EXPECT_EQ(last.fraction == 1.0F, isKnown && wanted == kCXResultOK);
        }
    }
}

TEST(Exchange, TheRestOfALineEndIsDroppedBeforeTheNextReply) {
    // The last line feed of the first reply has not arrived when its chunks are over.
    TranscriptStream first("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r", 1, true);
    CXHTTPReply reply;
    CXHTTPExchange exchange(first, reply);
    EXPECT_EQ(exchange.Run(CXHTTPRequest()), kCXResultOK);
    EXPECT_EQ(exchange.GetOpenLineEnd(), '\n');

    TranscriptStream second("\nHTTP/1.1 206 OK\r\nContent-Length: 0\r\n\r\n", 1, true);
    CXHTTPReply next;
    EXPECT_EQ(CXHTTPExchange(second, next, exchange.GetOpenLineEnd()).Run(CXHTTPRequest()),
              kCXResultOK);
    EXPECT_EQ(next.status, 206);
}

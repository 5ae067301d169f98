// One exchange: requests byte for byte, replies from tests/net/data/replies.txt.
#include "core/CXText.h"
#include "net/CXHTTPExchange.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/net/TranscriptStream.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <vector>

namespace {

struct ReplyCase {
    std::string name;
    int result = 0;
    std::optional<int> status;
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    std::optional<std::vector<std::string>> log;
    bool isKept = false;
    bool withText = true;
    bool withOutput = true;
    std::string reply;
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

void TakeExpectation(const std::string& line, ReplyCase& reply) {
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string key = line.substr(0, blank);
    const std::string value = blank < line.size() ? line.substr(blank + 1) : std::string();
    if (key == "result") {
        reply.result = std::stoi(value);
    } else if (key == "status") {
        reply.status = std::stoi(value);
    } else if (key == "body") {
        reply.body = value;
    } else if (key == "header") {
        const size_t end = std::min(value.find(' '), value.size());
        reply.headers.emplace_back(value.substr(0, end),
                                   end < value.size() ? value.substr(end + 1) : std::string());
    } else if (key == "log") {
        reply.log.emplace();
        if (!value.empty()) {
            reply.log->push_back(value);
        }
    } else if (line == "kept") {
        reply.isKept = true;
    } else if (line == "output") {
        reply.withText = false;
    } else if (line == "no output") {
        reply.withOutput = false;
    } else {
        ADD_FAILURE() << "in the data of '" << reply.name << "': " << line;
    }
}

std::vector<ReplyCase> LoadCases() {
    std::ifstream file("tests/net/data/replies.txt", std::ios::binary);
    std::vector<ReplyCase> cases;
    bool inReply = false;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (line.rfind("== ", 0) == 0) {
            cases.emplace_back();
            cases.back().name = line.substr(3);
            inReply = false;
        } else if (!cases.empty() && inReply) {
            cases.back().reply += ReplyLine(line);
        } else if (!cases.empty() && line == "reply") {
            inReply = true;
        } else if (!line.empty() && line[0] != '#') {
            TakeExpectation(line, cases.back());
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
    for (const ReplyCase& expected : cases) {
        for (const size_t step : {size_t{1}, size_t{7}, size_t{1} << 24}) {
            for (const bool withOutput : {false, true}) {
                const bool isTooSlow = expected.reply.size() > 100000 && (step == 1 || withOutput);
                if (isTooSlow || (withOutput ? !expected.withOutput : !expected.withText)) {
                    continue;
                }
                SCOPED_TRACE(expected.name + ", in pieces of " + std::to_string(step) +
                             (withOutput ? ", to a stream" : ""));
                const LogCapture log;
                const Played played = Play(expected.reply, step, expected.isKept, withOutput);
                EXPECT_EQ(played.result, expected.result);
                EXPECT_EQ(played.reply.status, expected.status.value_or(played.reply.status));
                EXPECT_EQ(played.body, expected.body);
                EXPECT_FALSE(played.hasWaited);
                for (const auto& wanted : expected.headers) {
                    const auto range = played.reply.headers.equal_range(CXString(wanted.first));
                    EXPECT_TRUE(std::any_of(range.first, range.second, [&](const auto& header) {
                        return header.second == CXString(wanted.second);
                    })) << wanted.first;
                }
                EXPECT_EQ(log.Get(), expected.log.value_or(log.Get()));
            }
        }
    }
}

TEST(Exchange, AConnectionThatEndsAtAnyByteIsNeverTakenForAWholeReply) {
    for (const ReplyCase& whole : LoadCases()) {
        if (whole.result != kCXResultOK || !whole.isKept || whole.reply.size() > 1000) {
            continue;
        }
        // A head may end at its last carriage return, the chunks at theirs.
        for (size_t length = 0; length + 1 < whole.reply.size(); ++length) {
            SCOPED_TRACE(whole.name + ", cut after " + std::to_string(length));
            const LogCapture log;
            const Played played = Play(whole.reply.substr(0, length), 5, false, true);
            EXPECT_EQ(played.result, kCXResultEndOfStream);
            EXPECT_EQ(whole.body.rfind(played.body, 0), 0U);
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
    struct Form {
        const char* head;
        bool isKnown;
    };
    for (const Form& form :
         {Form{"Content-Length: 100000\r\n\r\n", true},
          Form{"Transfer-Encoding: chunked\r\n\r\n186a0\r\n", false}, Form{"\r\n", false}}) {
        for (const uint64_t limit : {uint64_t{1000000}, uint64_t{40000}}) {
            std::string text = std::string("HTTP/1.1 200 OK\r\n") + form.head + body;
            if (std::string(form.head).find("chunked") != std::string::npos) {
                text += "\r\n0\r\n\r\n";
            }
            TranscriptStream connection(text, 10000, false);
            CXStreamDynamicBuffer output;
            CXHTTPReply reply;
            reply.output = &output;
            CXStreamProgressCallbackData last = {};
            reply.progress = [&](const CXStreamProgressCallbackData& data) {
                EXPECT_GE(data.bytesDone, last.bytesDone);
                EXPECT_EQ(data.sizeUnknown, form.isKnown ? 0 : 1);
                last = data;
                return data.bytesDone < limit;
            };
            const bool isCancelled = limit < body.size();
            EXPECT_EQ(CXHTTPExchange(connection, reply).Run(CXHTTPRequest()),
                      isCancelled ? kCXResultCancelled : kCXResultOK);
            EXPECT_EQ(output.GetLastError(), isCancelled ? kCXResultCancelled : kCXResultOK);
            EXPECT_EQ(last.bytesDone, output.GetSize());
            EXPECT_EQ(output.GetSize() < body.size(), isCancelled);
            if (!isCancelled) {
                EXPECT_EQ(last.fraction, form.isKnown ? 1.0F : 0.0F);
            }
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

#include "core/CXEncoding.h"
#include "core/CXLog.h"
#include "core/CXTime.h"

#include <gtest/gtest.h>

#include <ctime>
#include <mutex>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace {

std::mutex g_linesLock;
std::vector<std::string> g_lines;
int g_hooked = 0;

void Collect(const char* line) {
    const std::lock_guard<std::mutex> guard(g_linesLock);
    g_lines.emplace_back(line);
}

class Log : public testing::Test {
protected:
    void SetUp() override {
        g_lines.clear();
        g_hooked = 0;
        m_earlier = CXSetLogSink(Collect);
        CXSuppressDebuggerStop(true);
    }
    void TearDown() override {
        CXSetLogSink(m_earlier);
        CXSetErrorHook(nullptr);
        CXSuppressDebuggerStop(false);
    }

private:
    CXLogSink m_earlier = nullptr;
};

std::tm LocalTime(int64_t timestamp) {
    const auto seconds = static_cast<std::time_t>(timestamp / 1000);
    return *std::localtime(&seconds);
}

TEST_F(Log, LinesAreStampedAndWhole) {
    const std::string text(5000, 'x');
    CXLog(text);
    CXLogFormat("Class::Method> '%s' (%d)", "path", 5);
    CXLogFormat("%s %s", "too few"); // fails: the text is empty
    CXError("Class::Method> failed");
    ASSERT_EQ(g_lines.size(), 4u);
    const std::regex stamp(R"(\d{6}\.\d\d:\d\d:\d\d\.\d{3}\|[^\n]*)");
    for (const std::string& line : g_lines) {
        EXPECT_TRUE(std::regex_match(line.substr(0, 60), stamp)) << line;
    }
    EXPECT_EQ(g_lines[0].substr(20), text);
    EXPECT_EQ(g_lines[1].substr(20), "Class::Method> 'path' (5)");
    EXPECT_EQ(g_lines[2].substr(20), "");
    EXPECT_EQ(g_lines[3].substr(20), "Class::Method> failed");

    CXStringEdit prefix;
    CXAppendTimeStamp(prefix, 1718446925123);
    const std::tm calendar = LocalTime(1718446925123);
    char expected[40];
    std::strftime(expected, sizeof(expected), "%y%m%d.%H:%M:%S.123|", &calendar);
    EXPECT_EQ(prefix.View(), expected);
}

TEST_F(Log, StandardOutputIsTheDefault) {
    CXSetLogSink(nullptr);
    testing::internal::CaptureStdout();
    CXLog("Class::Method> one");
    CXError("Class::Method> two");
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(std::regex_match(
        output, std::regex("[0-9.:]+\\|Class::Method> one\n[0-9.:]+\\|Class::Method> two\n")))
        << output;
}

TEST_F(Log, HookSeesTheStampedLineAndMayReport) {
    EXPECT_EQ(CXSetErrorHook([](const char* line) {
                  if (++g_hooked == 1) {
                      CXError("from the hook");
                  }
                  return std::string(line).find('\n') == std::string::npos;
              }),
              nullptr);
    CXLog("not an error");
    EXPECT_EQ(g_hooked, 0);
    CXError("an error");
    EXPECT_EQ(g_hooked, 2);
    EXPECT_EQ(g_lines.size(), 3u);
    EXPECT_NE(CXSetErrorHook(nullptr), nullptr);
}

TEST_F(Log, ThreadsDoNotMixLines) {
    std::vector<std::jthread> threads;
    for (char mark = 'a'; mark < 'e'; ++mark) {
        threads.emplace_back([mark] {
            for (int round = 0; round < 200; ++round) {
                CXLog(std::string(static_cast<size_t>(round), mark));
            }
        });
    }
    threads.clear(); // waits for each
    EXPECT_EQ(g_lines.size(), 800u);
    for (const std::string& line : g_lines) {
        EXPECT_EQ(line.find_first_not_of(line.back(), 20), std::string::npos) << line;
    }
}

TEST_F(Log, TimesBeyondTheCalendar) {
    constexpr int64_t kLimit = int64_t{0x7915ecbfe} * 1000;
    EXPECT_EQ(CXTimeNatural(kLimit).second, LocalTime(kLimit).tm_sec);
    EXPECT_TRUE(g_lines.empty());
    for (const int64_t beyond : {kLimit + 1000, INT64_MAX}) {
        EXPECT_EQ(CXTimeNatural(beyond).second, 58);
        EXPECT_EQ(CXTimeNatural(beyond).year, CXTimeNatural(kLimit).year);
    }
    ASSERT_EQ(g_lines.size(), 1u); // said once
    EXPECT_EQ(g_lines[0].substr(20),
              "CXTimeNatural> input timestamp out of range for this platform");
    EXPECT_EQ(CXTime::GetStartOfDay(INT64_MAX), 0);
    ASSERT_EQ(g_lines.size(), 2u);
    EXPECT_EQ(g_lines[1].substr(20),
              "CXTime::GetStartOfDay> timestamp out of range for this platform");
}

TEST(Time, Calendar) {
    const int64_t now = CXTime::GetCurrentTime();
    EXPECT_LT(std::abs(now / 1000 - static_cast<int64_t>(std::time(nullptr))), 5);
    CXTime::TakeFirstSample();
    CXTime::TakeFirstSample();
    for (const int64_t timestamp : {now, int64_t{86400000}, int64_t{951782400999},
                                    int64_t{1711846800000}, int64_t{4102444799000}}) {
        const std::tm expected = LocalTime(timestamp);
        const CXTimeNatural natural(timestamp);
        EXPECT_EQ(std::make_tuple(natural.year, natural.month, natural.day, natural.hour,
                                  natural.minute, natural.second),
                  std::make_tuple(expected.tm_year + 1900, expected.tm_mon + 1, expected.tm_mday,
                                  expected.tm_hour, expected.tm_min, expected.tm_sec));
        const int64_t midnight = CXTime::GetStartOfDay(timestamp);
        EXPECT_LE(midnight, timestamp);
        EXPECT_GT(midnight, timestamp - 26 * 3600 * 1000);
        EXPECT_EQ(CXTimeNatural(midnight).day, natural.day);
        EXPECT_EQ(CXTime::GetStartOfDay(midnight), midnight);
    }
}

TEST(Encoding, Base64BothWays) {
    const std::pair<absl::string_view, const char*> rows[] = {{"", ""},
                                                              {"f", "Zg=="},
                                                              {"fo", "Zm8="},
                                                              {"foo", "Zm9v"},
                                                              {"foobar", "Zm9vYmFy"},
                                                              {"\xFB\xEF\xBE", "++++"},
                                                              {"\xFF\xFF\xFF", "////"}};
    for (const auto& [plain, encoded] : rows) {
        CXStringEdit out("kept:");
        Base64Encode(plain.data(), plain.size(), out);
        EXPECT_EQ(out.View(), std::string("kept:") + encoded);
        CXStringEdit back("kept:");
        EXPECT_EQ(Base64Decode(encoded, back), kCXResultOK);
        EXPECT_EQ(back.View(), "kept:" + std::string(plain));
    }
    std::string bytes;
    for (int index = 0; index < 3000; ++index) {
        bytes += static_cast<char>(index * 7 + index / 256);
        CXStringEdit text;
        Base64Encode(bytes.data(), bytes.size(), text);
        ASSERT_EQ(text.GetLength(), (bytes.size() + 2) / 3 * 4);
        CXStringEdit back;
        ASSERT_EQ(Base64Decode(text, back), kCXResultOK);
        ASSERT_EQ(back.View(), bytes);
    }
}

TEST(Encoding, Base64Faults) {
    for (const char* good : {" Z m\t9\r\nv ", "Zg=\n=", "Zg==  \r\n", "Zh=="}) {
        CXStringEdit out;
        EXPECT_EQ(Base64Decode(good, out), kCXResultOK) << good;
    }
    for (const char* bad :
         {"Z", "Zm", "Zm9", "Zm9vY", "Zg=", "Z===", "=", "====", "Zg==Zg==", "Zg=v",
          "Zm8==", "Zm9v=", "Zm9v-_-_", "Zm9v\f", "Zm\xC3\xA4", "Zg==x"}) {
        CXStringEdit out("kept");
        EXPECT_EQ(Base64Decode(bad, out), kCXResultBadData) << bad;
        EXPECT_EQ(out.View(), "kept");
    }
    CXStringEdit out;
    EXPECT_EQ(Base64Decode(absl::string_view("Zm9v\0", 5), out), kCXResultBadData);
}

} // namespace

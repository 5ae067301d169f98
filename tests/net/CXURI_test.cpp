#include "net/CXURI.h"

#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Text(const CXString& text) {
    return std::string(text.GetData(), text.GetLength());
}

/// All parts, so that one comparison tells everything.
std::string Parts(const CXURI& uri) {
    return Text(uri.scheme) + "|" + Text(uri.host) + "|" + std::to_string(uri.port) + "|" +
           Text(uri.user) + "|" + Text(uri.password) + "|" + Text(uri.path) + "|" + Text(uri.query);
}

TEST(CXURI, SplitsAddresses) {
    const struct {
        const char* text;
        const char* parts; // scheme|host|port|user|password|path|query
    } cases[] = {
        {"", "||0||||"},
        {"example", "|example|0||||"},
        {"HTTPS://Host.Example", "https|Host.Example|0||||"},
        {"http://user!pw@host:8080/a/b?x=1", "http|host|8080|user|pw|a/b|x=1"},
        {"http://user@host/p", "http|host|0|user||p|"},
        {"user@host", "|host|0|user|||"},
        {"user!p:w/x!y@host", "|host|0|user|p:w/x!y||"},
        {"!@host", "|host|0||||"},
        // A colon never separates a password: the word before it becomes the scheme.
        {"http://user:pw@host/", "user|host|0|pw|||"},
        {"host:80", "|host|80||||"},
        {"host:80/x", "|host|80|||x|"},
        {"host:65537", "|host|1||||"},
        {"http://host:99999/", "http|host|34463||||"},
        {"a:123456", "a|123456|0||||"},
        {"Host:80x", "Host|80x|0||||"},
        {"http://host:80?x", "host|80?x|0||||"},
        {"mailto:abc", "mailto|abc|0||||"},
        {"MAILTO:abc", "MAILTO|abc|0||||"},
        {"abc:", "abc||0||||"},
        {":abc", "|abc|0||||"},
        {"a://b://c", "b||0|||/c|"},
        {"://host", "|host|0||||"},
        {"/a/b", "||0|||a/b|"},
        {"//server/share", "||0|||/server/share|"},
        {"host?x=1", "|host?x=1|0||||"},
        {"host?x=1/y?z", "|host?x=1|0|||y|z"},
        {"host/a?b?c", "|host|0|||a|b?c"},
        {"host/?", "|host|0||||"},
        {"user!pw@host", "|host|0|user|pw||"},
        {"user!pw@host:", "|host|0|user|pw||"},
        {"user!pw@host:70000000000/x", "|host|15360|user|pw|x|"},
        {"file:///c|/dir/x.txt", "file||0|||c|/dir/x.txt|"},
    };
    for (const auto& one : cases) {
        const LogCapture log;
        EXPECT_EQ(Parts(CXURI(one.text)), one.parts) << one.text;
        EXPECT_TRUE(log.Get().empty()) << one.text;
    }
    EXPECT_EQ(Parts(CXURI(absl::string_view("host/a\0b", 8))), "|host|0|||a|");
}

TEST(CXURI, MalformedAddressesAreEmptyAndLoggedWithoutCredentials) {
    const struct {
        const char* text;
        const char* logged;
    } cases[] = {
        {"http://user!pw", "http://***"},
        {"user!p/w@host:80x/y", "***@host:80x/y"},
        {"user@host:x", "***@host:x"},
        {"http://a@host:1?u=me&x=1&p=pw", "http://***@host:1?u=***&x=1&p=***"},
    };
    for (const auto& one : cases) {
        const LogCapture log;
        EXPECT_TRUE(CXURI(one.text).IsEmpty()) << one.text;
        EXPECT_EQ(log.Get(), std::vector<std::string>{std::string("CXURI> bad URI format '") +
                                                      one.logged + "'"});
    }
}

TEST(CXURI, JoinsParts) {
    for (const char* text : {"http://user!pw@host:8080/a/b?x=1", "https://host", "user@host:1/p",
                             "host/?q", "file:///opt/x", "/a/b", "http://host/a%20b?c=%26"}) {
        EXPECT_EQ(Text(CXURI(text).ToString()), text);
    }
    EXPECT_EQ(Text(CXURI("http://host/").ToString()), "http://host");
    EXPECT_EQ(Text(CXURI("http://host").GetPathAndQuery()), "/");
    EXPECT_EQ(Text(CXURI("http://host/a?b").GetPathAndQuery()), "/a?b");
}

TEST(CXURI, LocalPathsOfFileAddresses) {
    const struct {
        const char* uri;
        const char* path;
    } cases[] = {
        {"file:///c|/dir/x.txt", "c:/dir/x.txt"},
        {"file:///C%3a/dir/a%20b", "C:/dir/a b"},
        {"FILE:///opt/x", "/opt/x"},
        {"file:///opt/a+b", "/opt/a b"},
        {"file://server/share/%C3%BC", "//server/share/\xC3\xBC"},
        {"file:///a%00b", ""},
        {"http://host/x", ""},
        {"c:/x", ""},
    };
    for (const auto& one : cases) {
        EXPECT_EQ(Text(CXURI(one.uri).ToFilePath()), one.path) << one.uri;
    }
}

TEST(CXURI, PercentCoding) {
    EXPECT_EQ(Text(CXURI::Encode("aZ09-._~ /\xC3\xA9%", "")), "aZ09-._~%20%2f%c3%a9%25");
    EXPECT_EQ(Text(CXURI::Encode("/a b/", "/")), "/a%20b/");
    EXPECT_EQ(Text(CXURI::Encode(absl::string_view("a\0b", 3))), "a");
    const struct {
        const char* coded;
        const char* text;
    } cases[] = {{"a+b%2", "a b%2"},    {"%41%6a%6A", "Ajj"}, {"%", "%"},
                 {"%4", "%4"},          {"%%41", "%A"},       {"%G1%1G", "%G1%1G"},
                 {"%c3%A9", "\xC3\xA9"}};
    for (const auto& one : cases) {
        EXPECT_EQ(Text(CXURI::Decode(one.coded)), one.text) << one.coded;
    }
    std::string all;
    for (int byte = 1; byte < 256; ++byte) {
        all.push_back(static_cast<char>(byte));
    }
    EXPECT_EQ(Text(CXURI::Decode(CXURI::Encode(all))), all);
}

} // namespace

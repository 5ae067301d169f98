// Subfiles, concatenated streams, the memory cache and the search.

#include "stream/CXStreamConcat.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamMemoryCacheWrapper.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamStringFilter.h"
#include "stream/CXStreamSubfile.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/stream/StreamKinds.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

std::string Rest(CXStream& stream) {
    std::string text;
    char byte = 0;
    while (stream.Read(&byte, 1) == 1) {
        text += byte;
    }
    return text;
}

std::unique_ptr<CXStreamStaticBuffer> Text(const char* text) {
    return std::make_unique<CXStreamStaticBuffer>(text, std::strlen(text));
}

/// Fails with a told error once its text is used up; of unknown size.
class BrokenStream : public CXStream {
public:
    BrokenStream(const char* text, CXResult error)
        : m_inner(text, std::strlen(text)), m_error(error) {
        m_flags = kCXStreamReadable | kCXStreamIsOpen;
    }
    uint64_t BufferedRead(void* data, uint64_t count) override {
        const uint64_t got = m_inner.Read(data, count);
        m_windowOffset += got;
        if (got < count) {
            SetError(m_error);
        }
        return got;
    }

private:
    CXStreamStaticBuffer m_inner;
    CXResult m_error;
};

TEST(StreamSubfile, ParentTooSmall) {
    CXStreamStaticBuffer parent("12345678901234", 14);
    CXStreamSubfile window;
    {
        const LogCapture log;
        EXPECT_FALSE(window.Open(parent, 5, 10));
        EXPECT_EQ(log.Get(), std::vector<std::string>{
                                 "CXStreamSubfile::Open> parent smaller than subfile (14, 5, 10)"});
        EXPECT_FALSE(window.Open(parent, 5, UINT64_MAX - 2)) << "a sum that overflows";
    }
    EXPECT_FALSE(window.IsOpen());
    uint8_t byte = 0;
    EXPECT_FALSE(window.ReadU8(byte));
    EXPECT_EQ(window.GetLastError(), kCXResultAlreadyOpen);
    EXPECT_TRUE(window.Open(parent, 4, 10));
    EXPECT_FALSE(window.Open(parent, 4, 1));
}

TEST(StreamSubfile, EndMarkAndParentErrors) {
    CXStreamStaticBuffer parent("0123456789abcdef", 16);
    parent.Skip(2);
    CXStreamSubfile window;
    ASSERT_TRUE(window.Open(parent, 2, 10));
    char text[20] = {};
    EXPECT_EQ(window.Read(text, 20), 10U);
    EXPECT_STREQ(text, "23456789ab");
    EXPECT_EQ(parent.GetLastError(), kCXResultOK);
    window.ResetError();
    EXPECT_EQ(window.Seek(12, kCXSeekStart), 12U);
    EXPECT_TRUE(window.IsAtEnd()) << "behind the end is marked";
    EXPECT_EQ(window.GetLastError(), kCXResultOK) << "and no failure";
    EXPECT_EQ(window.Seek(-1, kCXSeekStart), 0U);
    EXPECT_EQ(window.GetPosition(), 12U) << "the parent did not move before the window";
    EXPECT_EQ(parent.GetPosition(), 14U);

    BrokenStream broken("abc", kCXResultTimedOut);
    CXStreamSubfile over;
    ASSERT_TRUE(over.Open(broken, 0, 10)) << "a parent of unknown size is not tested";
    EXPECT_EQ(over.GetFlags(), 0x105U);
    EXPECT_EQ(over.Read(text, 5), 3U);
    EXPECT_EQ(over.GetLastError(), kCXResultTimedOut);
    EXPECT_EQ(broken.GetLastError(), kCXResultOK) << "the error moved over";
    EXPECT_EQ(over.GetPosition(), 3U);
    over.ResetError();
    EXPECT_EQ(over.Seek(1, kCXSeekStart), 3U) << "where it stands";
    EXPECT_EQ(over.GetLastError(), kCXResultNotSupported);
}

TEST(StreamSubfile, ClosingMovesTheParentToTheWindowsEnd) {
    const Bytes bytes = MakeBytes(30000);
    const Bytes deflated = Deflated(bytes);
    for (const uint64_t readFirst : {0U, 1U, 9999U, 10000U, 12000U}) {
        for (const bool forwardOnly : {false, true}) {
            SCOPED_TRACE(std::to_string(readFirst) + (forwardOnly ? " forward only" : " seekable"));
            CXStreamStaticBuffer plain(bytes.data(), bytes.size());
            CXStreamStaticBuffer source(deflated.data(), deflated.size());
            StreamProcessorZLibDecompress inflater;
            CXStreamProcessorWrapper inflating(inflater, &source, nullptr);
            CXStream& parent = forwardOnly ? static_cast<CXStream&>(inflating) : plain;
            parent.Skip(100);
            {
                CXStreamSubfile window;
                ASSERT_TRUE(window.Open(parent, parent.GetPosition(), 10000));
                Bytes got(12000);
                EXPECT_EQ(window.Read(got.data(), readFirst), std::min<uint64_t>(readFirst, 10000));
                window.Close();
                EXPECT_EQ(parent.GetPosition(), 10100U);
                window.Close();
                ASSERT_TRUE(window.Open(parent, 10100, 50));
            }
            EXPECT_EQ(parent.GetPosition(), 10150U) << "the destructor closes too";
            uint8_t byte = 0;
            EXPECT_TRUE(parent.ReadU8(byte));
            EXPECT_EQ(byte, bytes[10150]);
            // A size from outside that no parent has.
            CXStreamSubfile endless;
            if (endless.Open(parent, parent.GetPosition(), UINT64_MAX)) {
                Bytes rest(30000);
                EXPECT_EQ(endless.Read(rest.data(), 30000), 30000U - 10151U);
                EXPECT_EQ(endless.GetLastError(), kCXResultEndOfStream);
                endless.Close();
            }
        }
    }
}

TEST(StreamConcat, SizeIsKnownOnlyIfEveryPartsIs) {
    CXStreamConcat all;
    EXPECT_EQ(all.GetFlags(), 0x55U);
    uint8_t byte = 0;
    EXPECT_FALSE(all.ReadU8(byte));
    EXPECT_EQ(all.GetLastError(), kCXResultNotOpen);
    all.ResetError();
    all.Append(Text("one"));
    all.Append(Text(""));
    EXPECT_EQ(all.GetRemaining(), 3U);
    EXPECT_EQ(Rest(all), "one");
    EXPECT_TRUE(all.IsAtEnd());
    all.Append(Text("two"));
    EXPECT_FALSE(all.IsAtEnd());
    EXPECT_EQ(all.GetSize(), 6U);
    all.Append(std::make_unique<BrokenStream>("three", kCXResultEndOfStream));
    EXPECT_EQ(all.GetFlags() & kCXStreamSizeKnown, 0U);
    EXPECT_EQ(all.GetSize(), 0U);
    all.Append(Text("four"));
    EXPECT_TRUE(all.ReadU8(byte));
    EXPECT_EQ(all.Seek(1000, kCXSeekStart), 0U);
    EXPECT_EQ(all.GetLastError(), kCXResultNotSupported);
    EXPECT_EQ(all.GetPosition(), 4U) << "what was read ahead isn't lost by it";
    all.ResetError();
    EXPECT_EQ(Rest(all), "wothreefour");
    all.Append(std::make_unique<BrokenStream>("five", kCXResultBrokenPipe));
    all.Append(Text("six"));
    EXPECT_EQ(Rest(all), "five");
    EXPECT_EQ(all.GetLastError(), kCXResultBrokenPipe) << "a failing part hides no gap";
    all.Close();
    EXPECT_EQ(all.GetFlags(), 0x55U);
    EXPECT_EQ(all.GetSize(), 0U);
    EXPECT_EQ(all.GetPosition(), 0U);
}

TEST(StreamMemoryCache, SourceErrorsAndStepsBack) {
    CXStreamMemoryCacheWrapper cache(
        std::make_unique<BrokenStream>("hello world", kCXResultTimedOut));
    EXPECT_EQ(cache.Seek(6, kCXSeekStart), 6U);
    EXPECT_EQ(Rest(cache), "world");
    EXPECT_EQ(cache.GetLastError(), kCXResultTimedOut);
    EXPECT_FALSE(cache.IsAtEnd());
    cache.ResetError();
    EXPECT_EQ(cache.Seek(0, kCXSeekStart), 0U);
    EXPECT_EQ(Rest(cache), "hello world");
    EXPECT_EQ(cache.Seek(500, kCXSeekStart), 11U);
    Bytes much(10);
    volatile uint64_t endless = UINT64_MAX / 2;
    EXPECT_EQ(cache.Read(much.data(), endless), 0U) << "asks for no memory beforehand";
}

TEST(DynamicBuffer, GrowsInStepsAndRefusesTheImpossible) {
    CXStreamDynamicBuffer buffer;
    EXPECT_EQ(buffer.GetData(), nullptr);
    const auto capacity = [&buffer] {
        return static_cast<uint64_t>(buffer.m_writeLimit - buffer.m_windowBase);
    };
    buffer.WriteU8(1);
    EXPECT_EQ(capacity(), 4096U);
    buffer.SetOption(kCXStreamOptionReserve, 4096);
    EXPECT_EQ(capacity(), 8192U) << "4,097 and half as much, up to whole steps";
    EXPECT_TRUE(buffer.SetOption(kCXStreamOptionReserve, UINT64_MAX));
    EXPECT_EQ(capacity(), 8192U) << "a hint from outside costs nothing";
    EXPECT_TRUE(buffer.Reserve(20000));
    EXPECT_EQ(capacity(), 32768U);
    EXPECT_EQ(buffer.GetPosition(), 1U);
    EXPECT_EQ(buffer.GetSize(), 1U);
    EXPECT_FALSE(buffer.Reserve(UINT64_MAX - 1));
    EXPECT_EQ(buffer.GetLastError(), kCXResultNoResources);
    EXPECT_EQ(buffer.Seek(INT64_MAX, kCXSeekStart), static_cast<uint64_t>(INT64_MAX));
    EXPECT_FALSE(buffer.WriteU64(1));
    EXPECT_EQ(buffer.GetSize(), 1U);
    EXPECT_EQ(buffer.Seek(-1, kCXSeekRelative), static_cast<uint64_t>(INT64_MAX) - 1);
    EXPECT_EQ(buffer.Seek(0, kCXSeekStart), 0U);
    uint8_t byte = 0;
    EXPECT_TRUE(buffer.ReadU8(byte));
    EXPECT_EQ(byte, 1U);
}

TEST(StaticBuffer, CapacityBeyondTheBytesInUse) {
    char memory[] = "abcdefgh";
    CXStreamStaticBuffer buffer(memory, 2, false, 6);
    EXPECT_EQ(buffer.Seek(0, kCXSeekEnd), 2U);
    EXPECT_TRUE(buffer.WriteU8('X'));
    EXPECT_EQ(buffer.GetRemaining(), 0U);
    EXPECT_EQ(buffer.GetSize(), 3U) << "a write through the window counts";
    EXPECT_EQ(buffer.Write("123456", 6), 3U);
    EXPECT_STREQ(memory, "abX123gh");
    CXStreamStaticBuffer nothing(nullptr, 0);
    uint8_t byte = 0;
    EXPECT_FALSE(nothing.ReadU8(byte));
    EXPECT_EQ(nothing.GetLastError(), kCXResultEndOfStream);
}

TEST(StreamFilter, FindsStrings) {
    struct Case {
        const char* text;
        const char* wanted;
        uint64_t start;
        int64_t found;
    };
    const Case cases[] = {{"hello", "llo", 0, 2},
                          {"hello", "x", 0, -1},
                          {"aaaaab", "aab", 0, 3},
                          {"abababac", "ababac", 0, 2},
                          {"abcabcabd", "abcabd", 0, 3},
                          {"one two one", "one", 1, 8},
                          {"abc", "", 1, 1},
                          {"abc", "abcd", 0, -1},
                          {"aabaabaaab", "aabaaab", 0, 3},
                          {"", "a", 0, -1},
                          {"\xff\xfe\xff\xff", "\xff\xff", 0, 2}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.wanted) + " in " + c.text);
        const std::unique_ptr<CXStream> stream = Text(c.text);
        CXStreamStringFilter filter{CXString(c.wanted)};
        const auto match = filter.Match(*stream, c.start);
        ASSERT_EQ(match != nullptr, c.found >= 0);
        if (match != nullptr) {
            EXPECT_EQ(match->position, static_cast<uint64_t>(c.found));
            EXPECT_EQ(match->length, std::strlen(c.wanted));
            EXPECT_EQ(match->self, match.get());
            EXPECT_EQ(stream->GetPosition(), match->position + match->length);
        }
    }
}

} // namespace

// Digest, stream strings, reading a whole file.

#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/CXStreamTools.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/stream/StreamKinds.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

namespace {

TEST(StreamTools, MD5FromThePositionForACount) {
    CXStreamStaticBuffer stream("xxmessage digestyy", 18);
    stream.Skip(2);
    EXPECT_EQ(MD5OfStream(stream, 14), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(stream.GetPosition(), 16U);
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    EXPECT_EQ(MD5OfStream(stream, 0), "d41d8cd98f00b204e9800998ecf8427e");
    stream.Seek(3, kCXSeekStart);
    stream.Skip(13);
    MD5OfStream(stream, 3);
    EXPECT_EQ(stream.GetLastError(), kCXResultEndOfStream);

    // A file, in few calls.
    FaultFileDriver driver;
    const ScopedFileDriver scope(driver);
    TempFolder folder;
    folder.WriteFile("f", std::string(1000000, 'a'));
    CXStreamFile file;
    file.Open(folder.Path("f"), kOpenRead);
    EXPECT_EQ(MD5OfStream(file, file.GetSize()), "7707d6ae4e027c70eea2a935c2296f21");
    EXPECT_LE(driver.CountCalls(FileOp::Read), 63U);
    EXPECT_EQ(file.GetLastError(), kCXResultOK);
}

TEST(StreamTools, StreamStringsRoundTrip) {
    CXStreamDynamicBuffer buffer;
    const size_t lengths[] = {0, 1, 6, 254, 255, 256, 65536, 200000};
    uint64_t size = 0;
    for (const size_t length : lengths) {
        WriteStreamString(buffer, std::string(length, static_cast<char>('a' + length % 26)));
        size += length + (length < 255 ? 1 : 5);
        EXPECT_EQ(buffer.GetSize(), size);
    }
    buffer.Seek(0, kCXSeekStart);
    for (const size_t length : lengths) {
        CXString text("old");
        EXPECT_TRUE(ReadStreamString(buffer, text));
        EXPECT_EQ(text, std::string(length, static_cast<char>('a' + length % 26)));
    }
    CXString text("old");
    EXPECT_FALSE(ReadStreamString(buffer, text));
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_EQ(buffer.GetLastError(), kCXResultEndOfStream);
}

TEST(StreamTools, BadStreamStrings) {
    const struct {
        std::string bytes;
        CXResult whenKnown;   ///< on a stream of known size
        CXResult whenUnknown; ///< on an inflating stream
    } cases[] = {
        {std::string("\xff\xff\xff\xff\xff", 5) + "abc", kCXResultNoResources,
         kCXResultNoResources},
        {std::string("\x04") + "abc", kCXResultBadData, kCXResultEndOfStream},
        {std::string("\xff\xff\xff\xff\xfe", 5) + "abc", kCXResultBadData, kCXResultEndOfStream},
        {std::string("\xff\x00\x00", 3), kCXResultEndOfStream, kCXResultEndOfStream},
        {"", kCXResultEndOfStream, kCXResultEndOfStream},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.bytes));
        CXStreamStaticBuffer known(c.bytes.data(), c.bytes.size());
        CXString text("old");
        EXPECT_FALSE(ReadStreamString(known, text));
        EXPECT_EQ(known.GetLastError(), c.whenKnown);
        EXPECT_TRUE(text.IsEmpty());

        const Bytes deflated = Deflated(Bytes(c.bytes.begin(), c.bytes.end()));
        CXStreamStaticBuffer source(deflated.data(), deflated.size());
        StreamProcessorZLibDecompress inflater;
        CXStreamProcessorWrapper unknown(inflater, &source, nullptr);
        text = "old";
        EXPECT_FALSE(ReadStreamString(unknown, text));
        EXPECT_EQ(unknown.GetLastError(), c.whenUnknown);
        EXPECT_TRUE(text.IsEmpty());
    }
}

TEST(StreamTools, ReadsWholeFiles) {
    TempFolder folder;
    for (const size_t size : {0U, 1U, 65535U, 65536U, 65537U, 200000U}) {
        const Bytes bytes = MakeBytes(size);
        folder.WriteFile("f", std::string(bytes.begin(), bytes.end()));
        Bytes out = {1, 2, 3};
        CXStringEdit text;
        EXPECT_EQ(ReadWholeFile(folder.Path("f"), out, size), kCXResultOK);
        EXPECT_EQ(out, bytes);
        EXPECT_EQ(ReadWholeFile(folder.Path("f"), text, 1000000), kCXResultOK);
        EXPECT_EQ(text.View(), std::string(bytes.begin(), bytes.end()));
        if (size != 0) {
            EXPECT_EQ(ReadWholeFile(folder.Path("f"), out, size - 1), kCXResultNoResources);
            EXPECT_TRUE(out.empty());
        }
    }
    CXStringEdit text("old");
    EXPECT_EQ(ReadWholeFile(folder.Path("none"), text, 10), kCXResultNotFound);
    EXPECT_TRUE(text.IsEmpty());
    FaultFileDriver driver;
    const ScopedFileDriver scope(driver);
    driver.Fail(FileFault::Device, 2, 2, FileOp::Read);
    EXPECT_EQ(ReadWholeFile(folder.Path("f"), text, 1000000), kCXResultNoResources);
    EXPECT_TRUE(text.IsEmpty());
}

} // namespace

// The zlib processors and the stream around them.

#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamProcessorWrapper.h"
#include "stream/CXStreamStaticBuffer.h"
#include "stream/StreamProcessorZLib.h"
#include "tests/stream/StreamKinds.h"

#include <gtest/gtest.h>

#include <random>

namespace {

Bytes Contents(CXStreamDynamicBuffer& buffer) {
    const uint8_t* data = buffer.GetData();
    return Bytes(data, data + buffer.GetSize());
}

/// Text-like bytes that compress, with incompressible stretches.
Bytes Mixed(size_t size) {
    Bytes bytes = MakeBytes(size);
    for (size_t i = 0; i < size; ++i) {
        if ((i >> 11) % 3 != 0) {
            bytes[i] = static_cast<uint8_t>("lorem ipsum dolor "[i % 18]);
        }
    }
    return bytes;
}

Bytes InflateAll(const Bytes& deflated, size_t piece, CXResult& result) {
    CXStreamStaticBuffer source(deflated.data(), deflated.size());
    StreamProcessorZLibDecompress inflater;
    CXStreamProcessorWrapper stream(inflater, &source, nullptr);
    Bytes out;
    for (size_t got = piece; got == piece;) {
        out.resize(out.size() + piece);
        got = static_cast<size_t>(stream.Read(&out[out.size() - piece], piece));
        out.resize(out.size() - piece + got);
        EXPECT_EQ(stream.GetPosition(), out.size());
    }
    result = stream.GetLastError();
    EXPECT_EQ(stream.IsAtEnd(), result == kCXResultEndOfStream);
    EXPECT_EQ(source.GetLastError(), kCXResultOK) << "of a known size no more than that is asked";
    return out;
}

TEST(ZLib, AllocatorKeepsSizesAndAlignment) {
    std::vector<std::pair<uint8_t*, size_t>> blocks;
    for (unsigned size = 0; size < 700; size += size < 40 ? 1 : 37) {
        for (const unsigned items : {1U, 3U}) {
            auto* block =
                static_cast<uint8_t*>(StreamProcessorZLib::AllocateForZLib(nullptr, items, size));
            ASSERT_NE(block, nullptr);
            const uintptr_t address = reinterpret_cast<uintptr_t>(block);
            EXPECT_EQ(address % 16, items * size < 16 ? 8U : 0U);
            std::memset(block, static_cast<int>(blocks.size() & 0xFF), items * size);
            blocks.emplace_back(block, items * size);
        }
    }
    for (size_t i = 0; i < blocks.size(); ++i) {
        for (size_t k = 0; k < blocks[i].second; ++k) {
            ASSERT_EQ(blocks[i].first[k], i & 0xFF);
        }
        StreamProcessorZLib::FreeForZLib(nullptr, blocks[i].first);
    }
    StreamProcessorZLib::FreeForZLib(nullptr, nullptr);
    EXPECT_EQ(StreamProcessorZLib::AllocateForZLib(nullptr, UINT32_MAX, UINT32_MAX), nullptr);
}

TEST(ZLib, RoundTripsThroughWritingAndReadingWrappers) {
    for (const size_t size : {0U, 1U, 4095U, 4096U, 4097U, 300000U}) {
        for (const int level : {0, 1, 9}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, level " + std::to_string(level));
            const Bytes bytes = Mixed(size);
            // Written in uneven pieces.
            CXStreamDynamicBuffer written;
            {
                StreamProcessorZLibCompress deflater(level);
                CXStreamProcessorWrapper stream(deflater, nullptr, &written);
                EXPECT_EQ(stream.GetFlags(), 0x110U);
                for (size_t at = 0, piece = 1; at < size; at += piece, piece = piece * 3 + 1) {
                    piece = std::min(piece, size - at);
                    ASSERT_EQ(stream.Write(bytes.data() + at, piece), piece);
                }
                EXPECT_EQ(stream.GetPosition(), size);
                stream.Close();
                EXPECT_EQ(stream.GetLastError(), kCXResultOK);
            }
            // Read from a deflating wrapper.
            CXStreamStaticBuffer source(bytes.data(), bytes.size());
            StreamProcessorZLibCompress deflater(level);
            CXStreamProcessorWrapper reading(deflater, &source, nullptr);
            Bytes read(size + 1000);
            read.resize(static_cast<size_t>(reading.Read(read.data(), read.size())));
            EXPECT_EQ(reading.GetLastError(), kCXResultEndOfStream);
            // Both are what zlib itself makes of them, and come back in pieces of any size
            // (stored blocks are cut as the pieces come).
            if (level != 0) {
                EXPECT_EQ(Contents(written), Deflated(bytes, level));
                EXPECT_EQ(read, Deflated(bytes, level));
            }
            for (const size_t piece : {size_t{7}, size_t{1023}, size_t{1025}, size_t{16384}}) {
                CXResult result = kCXResultOK;
                EXPECT_EQ(InflateAll(read, piece, result), bytes);
                EXPECT_EQ(result, kCXResultEndOfStream);
            }
            // And through a wrapper that inflates what is written to it, bytes behind included.
            read.insert(read.end(), 5000, 0x55);
            CXStreamDynamicBuffer inflated;
            StreamProcessorZLibDecompress inflater;
            CXStreamProcessorWrapper writing(inflater, nullptr, &inflated);
            EXPECT_EQ(writing.Write(read.data(), read.size()), read.size());
            writing.Close();
            EXPECT_EQ(writing.GetLastError(), kCXResultOK);
            EXPECT_EQ(Contents(inflated), bytes);
        }
    }
}

TEST(ZLib, TruncatedDataIsAnEndAfterWhatThereWas) {
    const Bytes bytes = Mixed(5000);
    const Bytes deflated = Deflated(bytes);
    for (size_t cut = 0; cut < deflated.size(); cut += cut < 20 ? 1 : 97) {
        const Bytes part(deflated.begin(), deflated.begin() + static_cast<int64_t>(cut));
        for (const size_t piece : {size_t{64}, size_t{16384}}) {
            CXResult result = kCXResultOK;
            const Bytes out = InflateAll(part, piece, result);
            ASSERT_EQ(result, kCXResultEndOfStream);
            ASSERT_TRUE(out.size() <= bytes.size() &&
                        std::equal(out.begin(), out.end(), bytes.begin()));
        }
    }
}

TEST(ZLib, CorruptDataFailsForGood) {
    const Bytes bytes = Mixed(60000);
    const Bytes deflated = Deflated(bytes);
    std::mt19937 random(7);
    size_t failures = 0;
    for (int round = 0; round < 300; ++round) {
        Bytes bad = deflated;
        bad[random() % bad.size()] ^= static_cast<uint8_t>(1U << (random() % 8));
        CXResult small = kCXResultOK;
        CXResult large = kCXResultOK;
        const Bytes inSmall = InflateAll(bad, 100, small);
        const Bytes inLarge = InflateAll(bad, 16384, large);
        ASSERT_EQ(small, large);
        ASSERT_EQ(inSmall, inLarge) << "both ways of output hand out the same";
        ASSERT_TRUE(small == kCXResultUnusable || small == kCXResultEndOfStream);
        failures += small == kCXResultUnusable ? 1 : 0;
    }
    EXPECT_GT(failures, 250U) << "the checksum at the end catches nearly all";

    const Bytes garbage = {0x78, 0x9C, 0xFF, 0xFF, 0xFF};
    CXStreamStaticBuffer source(garbage.data(), garbage.size());
    StreamProcessorZLibDecompress inflater;
    CXStreamProcessorWrapper stream(inflater, &source, nullptr);
    uint8_t byte = 0;
    for (int i = 0; i < 3; ++i) {
        stream.ResetError();
        EXPECT_FALSE(stream.ReadU8(byte));
        EXPECT_EQ(stream.GetLastError(), kCXResultUnusable);
        EXPECT_FALSE(stream.IsAtEnd());
    }
    EXPECT_EQ(stream.Skip(100), 0U);
}

TEST(ZLib, ProcessorsCheckTheirArguments) {
    StreamProcessorZLibDecompress inflater;
    const Bytes deflated = Deflated(MakeBytes(10));
    CXStreamStaticBuffer source(deflated.data(), deflated.size());
    EXPECT_EQ(inflater.GetInputRoom(), 4096U);
    EXPECT_EQ(inflater.FillInput(source, 4097), kCXResultInvalidArgument);
    EXPECT_EQ(inflater.FillInput(source, 0), kCXResultOK);
    EXPECT_EQ(inflater.FillInput(source, deflated.size() + 3), kCXResultEndOfStream);
    EXPECT_EQ(inflater.GetInputRoom(), 4096 - deflated.size()) << "a short read keeps what came";
    EXPECT_EQ(inflater.Process(), kCXResultEndOfStream);
    EXPECT_EQ(inflater.GetOutputAvailable(), 10U);
    uint8_t out[16];
    uint64_t produced = 0;
    EXPECT_EQ(inflater.ReadOutput(out, 11), kCXResultInvalidArgument);
    EXPECT_EQ(inflater.ProcessInto(out, 16, produced), kCXResultInvalidArgument);
    EXPECT_EQ(inflater.ReadOutput(out, 4), kCXResultOK);
    CXStreamDynamicBuffer destination;
    EXPECT_EQ(inflater.ReadOutputToStream(destination, 7), kCXResultInvalidArgument);
    EXPECT_EQ(inflater.ReadOutputToStream(destination, 6), kCXResultOK);
    Bytes joined(out, out + 4);
    const Bytes rest = Contents(destination);
    joined.insert(joined.end(), rest.begin(), rest.end());
    EXPECT_EQ(joined, MakeBytes(10));

    StreamProcessorZLibCompress unusable(77);
    EXPECT_EQ(unusable.Process(), kCXResultFailed);
    StreamProcessorZLibCompress empty(6);
    EXPECT_EQ(empty.Process(), kCXResultEndOfStream) << "no input ends the stream";
    EXPECT_EQ(empty.GetOutputAvailable(), Deflated(Bytes()).size());
}

TEST(ZLib, OutputTakenInPartsLeavesRoomForMore) {
    const Bytes bytes = Mixed(50000);
    const Bytes deflated = Deflated(bytes);
    CXStreamStaticBuffer source(deflated.data(), deflated.size());
    StreamProcessorZLibDecompress inflater;
    CXStreamDynamicBuffer out;
    CXResult result = kCXResultOK;
    // A driver that never drains the output area before it goes on.
    while (out.GetSize() < bytes.size() && result == kCXResultOK) {
        const uint64_t wanted = std::min(inflater.GetInputRoom(), source.GetRemaining());
        ASSERT_EQ(inflater.FillInput(source, wanted), kCXResultOK);
        result = inflater.Process();
        const uint64_t available = inflater.GetOutputAvailable();
        const uint64_t taken = result == kCXResultOK ? available - available / 3 : available;
        ASSERT_EQ(inflater.ReadOutputToStream(out, taken), kCXResultOK);
        ASSERT_EQ(inflater.GetOutputAvailable(), available - taken);
    }
    EXPECT_EQ(Contents(out), bytes);
}

TEST(ZLib, WrapperPassesTheFailuresOfOtherStreams) {
    const Bytes bytes = MakeBytes(50000);
    uint8_t room[1000];
    CXStreamStaticBuffer small(room, sizeof(room), false);
    StreamProcessorZLibCompress deflater(6);
    CXStreamProcessorWrapper writing(deflater, nullptr, &small);
    EXPECT_LT(writing.Write(bytes.data(), bytes.size()), bytes.size());
    EXPECT_EQ(writing.GetLastError(), kCXResultEndOfStream);
    writing.ResetError();
    writing.Close();
    EXPECT_NE(writing.GetLastError(), kCXResultOK);

    CXStreamStaticBuffer closed(bytes.data(), bytes.size());
    closed.Close();
    StreamProcessorZLibDecompress inflater;
    CXStreamProcessorWrapper reading(inflater, &closed, nullptr);
    uint8_t byte = 0;
    EXPECT_FALSE(reading.ReadU8(byte));
    EXPECT_EQ(reading.GetLastError(), kCXResultNotOpen);
}

} // namespace

// What every kind of stream must do alike. Included by one source of a test program, which
// instantiates StreamConformance with its kinds of streams.
#pragma once

#include "core/CXTime.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/support/StreamKind.h"

#include <gtest/gtest.h>

namespace {

/// Not a constant, so that the compiler can't object beforehand.
void* volatile s_null = nullptr;

class StreamConformance : public testing::TestWithParam<StreamKind> {
protected:
    void Open(size_t size) {
        m_bytes = MakeBytes(size);
        m_under = GetParam().make(m_bytes);
    }
    CXStream& Stream() { return m_under->Get(); }
    /// What a read that finds nothing stores.
    static CXResult DryResult() {
        return GetParam().dryIsNoFault ? kCXResultOK : kCXResultEndOfStream;
    }
    Bytes Slice(size_t from, size_t count) const {
        return Bytes(m_bytes.begin() + static_cast<int64_t>(from),
                     m_bytes.begin() + static_cast<int64_t>(from + count));
    }

    Bytes m_bytes;
    std::unique_ptr<StreamUnderTest> m_under;
};

Bytes ReadBytes(CXStream& stream, size_t count) {
    Bytes bytes(count);
    bytes.resize(static_cast<size_t>(stream.Read(bytes.data(), count)));
    return bytes;
}

TEST_P(StreamConformance, StartsOpenAtZeroWithItsFlags) {
    Open(100);
    EXPECT_EQ(Stream().GetFlags(), GetParam().flags);
    EXPECT_TRUE(Stream().IsOpen());
    EXPECT_EQ(Stream().GetLastError(), kCXResultOK);
    EXPECT_EQ(Stream().GetPosition(), 0U);
    EXPECT_EQ(Stream().GetSize(), GetParam().sizeKnown ? 100U : 0U);
    EXPECT_EQ(Stream().GetRemaining(), GetParam().sizeKnown ? 100U : 0U);
    EXPECT_EQ(Stream().GetLastError(), GetParam().sizeKnown || GetParam().remainingIsZero
                                           ? kCXResultOK
                                           : kCXResultNotSupported);
    EXPECT_FALSE(Stream().SetOption(0x41424344, 1));
    EXPECT_FALSE(Stream().QueryReserved());
}

TEST_P(StreamConformance, ShortReadMarksTheEndAndASeekClearsOnlyTheMark) {
    Open(3);
    EXPECT_EQ(ReadBytes(Stream(), 5), m_bytes);
    EXPECT_EQ(Stream().GetLastError(), DryResult());
    EXPECT_EQ(Stream().IsAtEnd(), GetParam().marksEnd);
    EXPECT_EQ(ReadBytes(Stream(), 1).size(), 0U);
    EXPECT_EQ(Stream().IsAtEnd(), GetParam().marksEnd);
    if (!GetParam().duplex) {
        EXPECT_EQ(Stream().Seek(GetParam().seeks ? -1 : 0, kCXSeekRelative),
                  GetParam().seeks ? 2U : 3U);
        EXPECT_FALSE(Stream().IsAtEnd());
    }
    EXPECT_EQ(Stream().GetLastError(), DryResult());
    Stream().SetError(kCXResultOK);
    EXPECT_EQ(Stream().GetLastError(), DryResult()) << "a success stores nothing";
    Stream().ResetError();
    EXPECT_EQ(Stream().GetLastError(), kCXResultOK);
}

TEST_P(StreamConformance, ReadingNothingIsNoFault) {
    Open(10);
    EXPECT_EQ(Stream().Read(s_null, 0), 0U);
    EXPECT_EQ(Stream().GetLastError(), kCXResultOK);
    EXPECT_FALSE(Stream().IsAtEnd());
    EXPECT_EQ(Stream().Read(s_null, 20), 0U);
    EXPECT_EQ(Stream().GetLastError(), kCXResultInvalidArgument);
}

TEST_P(StreamConformance, SeeksFromStartPositionAndEnd) {
    Open(20000);
    CXStream& stream = Stream();
    if (GetParam().duplex) {
        EXPECT_EQ(stream.Seek(1, kCXSeekStart), 0U);
        EXPECT_EQ(stream.GetLastError(), kCXResultNotSupported);
        EXPECT_EQ(stream.GetPosition(), 0U);
        return;
    }
    if (!GetParam().seeks) {
        EXPECT_EQ(ReadBytes(stream, 10).size(), 10U);
        EXPECT_EQ(stream.Seek(10, kCXSeekStart), 10U);
        EXPECT_EQ(stream.GetLastError(), kCXResultOK);
        EXPECT_EQ(stream.Seek(9, kCXSeekStart), 0U);
        EXPECT_EQ(stream.GetLastError(), kCXResultNotSupported);
        EXPECT_EQ(stream.GetPosition(), 10U);
        return;
    }
    EXPECT_EQ(stream.Seek(15000, kCXSeekStart), 15000U);
    EXPECT_EQ(ReadBytes(stream, 3), Slice(15000, 3));
    EXPECT_EQ(stream.Seek(-10003, kCXSeekRelative), 5000U);
    EXPECT_EQ(ReadBytes(stream, 6000), Slice(5000, 6000));
    if (GetParam().sizeKnown) {
        EXPECT_EQ(stream.Seek(-5, kCXSeekEnd), 19995U);
        EXPECT_EQ(ReadBytes(stream, 5), Slice(19995, 5));
        EXPECT_EQ(stream.GetRemaining(), 0U);
    }
    EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    const uint64_t before = stream.GetPosition();
    EXPECT_EQ(stream.Seek(1, 3), 0U) << "unknown whence";
    EXPECT_EQ(stream.GetPosition(), before);
    EXPECT_EQ(stream.Seek(-1, kCXSeekStart), 0U);
    EXPECT_NE(stream.GetLastError(), kCXResultOK);
    EXPECT_EQ(stream.GetPosition(), before);
}

TEST_P(StreamConformance, IntegersAreBigEndian) {
    m_bytes = {7, 0x01, 0x02, 0x03, 0x04, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17, 0x18, 0xFF};
    m_under = GetParam().make(m_bytes);
    uint8_t small = 0;
    uint32_t middle = 0;
    uint64_t large = 0;
    EXPECT_TRUE(Stream().ReadU8(small) && Stream().ReadU32(middle) && Stream().ReadU64(large));
    EXPECT_EQ(small, 7U);
    EXPECT_EQ(middle, 0x01020304U);
    EXPECT_EQ(large, 0x1112131415161718U);
    EXPECT_FALSE(Stream().ReadU32(middle));
    EXPECT_EQ(middle, 0U);
    EXPECT_EQ(Stream().GetLastError(), DryResult());
    EXPECT_FALSE(Stream().ReadU8(small));
    EXPECT_EQ(small, 0U);
}

TEST_P(StreamConformance, RefusesWhatItCanNotDo) {
    Open(10000);
    CXStream& stream = Stream();
    const bool memoryOrFile = (GetParam().flags & kCXStreamSeekWritten) != 0;
    if (!GetParam().resizes) {
        stream.SetSize(3000);
        EXPECT_EQ(stream.GetLastError(),
                  GetParam().flags == 0x1BD ? kCXResultAccessDenied : kCXResultNotSupported);
        stream.ResetError();
    }
    if (GetParam().writes) {
        EXPECT_EQ(stream.Write(s_null, 1000000), 0U);
        EXPECT_EQ(stream.GetLastError(), kCXResultInvalidArgument);
    } else {
        EXPECT_EQ(stream.WriteUnbuffered("x", 1), 0U);
        EXPECT_EQ(stream.GetLastError(),
                  memoryOrFile ? kCXResultAccessDenied : kCXResultNotSupported);
    }
    if (GetParam().duplex) {
        stream.ResetError(); // a connection in error reads nothing
    }
    EXPECT_EQ(ReadBytes(stream, 10), Slice(0, 10)) << "reading goes on";
}

TEST_P(StreamConformance, WritesBigEndianIntegers) {
    if (!GetParam().writes) {
        return;
    }
    Open(20);
    CXStream& stream = Stream();
    EXPECT_TRUE(stream.WriteU8(1) && stream.WriteU32(0x02030405) &&
                stream.WriteU64(0x060708090A0B0C0D));
    Bytes expected = m_bytes;
    if (GetParam().duplex) {
        expected.resize(13);
    }
    for (uint8_t i = 0; i < 13; ++i) {
        expected[i] = static_cast<uint8_t>(i + 1);
    }
    EXPECT_EQ(m_under->Stored(), expected);
}

TEST_P(StreamConformance, CopiesInBothDirections) {
    Open(40000);
    CXStreamDynamicBuffer other;
    uint64_t calls = 0;
    CXStreamProgressCallbackData last = {};
    CXStreamCopyOptions options;
    options.progress = [&](const CXStreamProgressCallbackData& data) {
        EXPECT_GT(data.bytesDone, last.bytesDone);
        EXPECT_GT(data.startTime, 0);
        last = data;
        return ++calls < 3;
    };
    EXPECT_EQ(CXStream::Copy(other, Stream(), 0, &options), kCXResultOK);
    EXPECT_EQ(calls, 0U);
    EXPECT_EQ(CXStream::Copy(other, Stream(), 40000, &options), kCXResultCancelled);
    EXPECT_EQ(other.GetSize(), 40000U) << "the third piece was written before it was told";
    EXPECT_EQ(last.bytesTotal, 40000U);
    EXPECT_EQ(last.bytesDone, 40000U);
    EXPECT_EQ(last.fraction, 1.0F);
    EXPECT_EQ(last.sizeUnknown, 0U);
    EXPECT_EQ(Bytes(other.GetData(), other.GetData() + 40000), m_bytes);
    EXPECT_EQ(CXStream::Copy(other, Stream(), 1), CXResultCertainFailure(DryResult()));

    other.Seek(0, kCXSeekStart);
    if (!GetParam().writes) {
        EXPECT_NE(CXStream::Copy(Stream(), other, 100), kCXResultOK);
        return;
    }
    Stream().Seek(1000, kCXSeekStart);
    Stream().ResetError();
    EXPECT_EQ(CXStream::Copy(Stream(), other, 39000), kCXResultOK);
    Bytes expected = Slice(0, GetParam().duplex ? 0 : 1000);
    expected.insert(expected.end(), m_bytes.begin(), m_bytes.begin() + 39000);
    EXPECT_EQ(m_under->Stored(), expected);
}

TEST_P(StreamConformance, ClosedRefusesEverything) {
    Open(10);
    CXStream& stream = Stream();
    stream.Close();
    EXPECT_FALSE(stream.IsOpen());
    const CXResult expected = GetParam().closedIsAlreadyOpen ? kCXResultAlreadyOpen
                              : GetParam().drainsClosed      ? kCXResultEndOfStream
                                                             : kCXResultNotOpen;
    uint8_t byte = 0;
    if (GetParam().drainsClosed) {
        EXPECT_EQ(ReadBytes(stream, 10), m_bytes);
        EXPECT_EQ(stream.GetLastError(), kCXResultOK);
    }
    EXPECT_EQ(stream.Read(&byte, 1), 0U);
    EXPECT_EQ(stream.GetLastError(), expected);
    stream.ResetError();
    EXPECT_EQ(stream.Write(&byte, 1), 0U);
    EXPECT_NE(stream.GetLastError(), kCXResultOK);
    if (GetParam().seeks) {
        stream.ResetError();
        EXPECT_EQ(stream.Seek(1, kCXSeekStart), 0U);
        EXPECT_EQ(stream.GetLastError(), expected);
    }
    stream.Close();
}

TEST_P(StreamConformance, EventsTellReadableAndNotOpen) {
    Open(4);
    CXGenericEventRef readable = Stream().GetEventRef(kCXStreamEventCanRead);
    CXGenericEventRef notOpen = Stream().GetEventRef(kCXStreamEventNotOpen);
    for (int i = 0; GetParam().duplex && !readable.Test() && i < 1000; ++i) {
        CXSleep(5); // the bytes are still under way
    }
    EXPECT_TRUE(readable.Test());
    EXPECT_FALSE(notOpen.Test());
    EXPECT_TRUE(Stream().GetEventRef(2).Test());
    ReadBytes(Stream(), 5);
    EXPECT_EQ(readable.Test(), GetParam().readableAtEnd);
    Stream().Close();
    EXPECT_TRUE(notOpen.Test());
    m_under.reset();
    EXPECT_TRUE(readable.Test()) << "the stream is gone";
}

} // namespace

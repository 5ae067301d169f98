// Files as streams: opening, sharing, the cache's platform calls, and failing platforms.

#include "core/CXExclusivePaths.h"
#include "core/CXFileSystem.h"
#include "stream/CXStreamFile.h"
#include "tests/stream/StreamKinds.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

std::string TextOf(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

TEST(StreamFile, OpenModes) {
    struct Case {
        uint32_t mode;
        bool exists;
        CXResult result;
        uint32_t flags; ///< after opening
        std::string contents;
    };
    const Case cases[] = {
        {kOpenRead, false, kCXResultNotFound, 0xBF, ""},
        {kOpenRead, true, kCXResultOK, 0x1BD, "old"},
        {kOpenRead | kOpenCreate, false, kCXResultNotFound, 0xBF, ""},
        {kOpenWrite, false, kCXResultNotFound, 0xBF, ""},
        {kOpenWrite, true, kCXResultOK, 0x1BF, "old"},
        {kOpenWrite | kOpenCreate, false, kCXResultOK, 0x1BF, ""},
        {kOpenWrite | kOpenCreate, true, kCXResultOK, 0x1BF, "old"},
        {kOpenWrite | kOpenTruncate, true, kCXResultOK, 0x1BF, "old"},
        {kOpenWrite | kOpenCreate | kOpenTruncate, true, kCXResultOK, 0x1BF, ""},
        {kOpenWrite | kOpenCreate | kOpenTruncate | kOpenExclusive, true, kCXResultOK, 0x1BF, ""},
        {kOpenWrite | kOpenExclusive, false, kCXResultNotFound, 0xBF, ""},
        {0, true, kCXResultOK, 0x1BC, "old"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE("mode " + std::to_string(c.mode) + (c.exists ? " present" : " missing"));
        TempFolder folder;
        if (c.exists) {
            folder.WriteFile("f", "old");
        }
        CXStreamFile file;
        EXPECT_EQ(file.GetFlags(), 0xBFU);
        file.Open(folder.Path("f"), c.mode);
        EXPECT_EQ(file.GetLastError(), c.result);
        EXPECT_EQ(file.GetFlags(), c.flags);
        EXPECT_EQ(file.IsOpen(), c.result == kCXResultOK);
        if ((c.mode & (kOpenRead | kOpenWrite)) != 0 && file.IsOpen()) {
            EXPECT_EQ(file.GetSize(), c.contents.size());
            char text[8] = {};
            EXPECT_EQ(file.Read(text, c.contents.size()), c.contents.size());
            EXPECT_EQ(text, c.contents);
        }
        file.Close();
        EXPECT_EQ(file.GetFlags(), 0xBFU);
        EXPECT_EQ(folder.Has("f"), c.exists || c.result == kCXResultOK);
    }
}

TEST(StreamFile, OpenFailuresLeaveItUsable) {
    TempFolder folder;
    folder.WriteFile("a", "a");
    CXStreamFile file;
    file.Open(CXString(), kOpenRead);
    EXPECT_EQ(file.GetLastError(), kCXResultInvalidArgument);
    file.Open(folder.Path("none"), kOpenRead);
    EXPECT_EQ(file.GetLastError(), kCXResultNotFound);
    uint8_t byte = 0;
    EXPECT_EQ(file.Read(&byte, 1), 0U);
    EXPECT_EQ(file.GetLastError(), kCXResultNotOpen);
    EXPECT_EQ(file.GetSize(), 0U);
    file.Open(folder.Path("a"), kOpenRead);
    EXPECT_EQ(file.GetLastError(), kCXResultOK) << "opening resets the error";
    file.Open(folder.Path("a"), kOpenRead);
    EXPECT_EQ(file.GetLastError(), kCXResultAlreadyOpen);
    EXPECT_TRUE(file.ReadU8(byte));
    EXPECT_EQ(byte, 'a');
}

TEST(StreamFile, ExclusiveUse) {
    TempFolder folder;
    const CXString path = folder.Path("f");
    constexpr uint32_t kMode = kOpenWrite | kOpenCreate | kOpenExclusive;
    CXStreamFile first;
    first.Open(path, kMode);
    ASSERT_TRUE(first.IsOpen());
    EXPECT_TRUE(CXExclusivePaths::Contains(path));
    CXStreamFile second;
    // The same file by a text that has to be normalised.
    second.Open(CXFileSystem::Join(folder.Path("x"), "../f"), kMode);
    EXPECT_EQ(second.GetLastError(), kCXResultInUse);
    EXPECT_FALSE(second.IsOpen());
    EXPECT_FALSE(second.LockFilePath(path));
    EXPECT_EQ(CXFileSystem::DeleteFile(path), kCXResultInUse);
    first.Close();
    EXPECT_FALSE(CXExclusivePaths::Contains(path));
    second.Open(path, kMode);
    EXPECT_EQ(second.GetLastError(), kCXResultOK);
    second.Close();

    CXStreamFile holder;
    EXPECT_TRUE(holder.LockFilePath(path));
    first.Open(path, kMode);
    EXPECT_EQ(first.GetLastError(), kCXResultInUse);
    holder.Open(path, kMode);
    EXPECT_TRUE(holder.IsOpen()) << "its own registration is no hindrance";
    holder.Close();
    first.Open(folder.Path("no/such/f"), kMode);
    EXPECT_EQ(first.GetLastError(), kCXResultNotFound);
    EXPECT_FALSE(CXExclusivePaths::Contains(folder.Path("no/such/f")));
    EXPECT_TRUE(holder.LockFilePath(path));
}

class StreamFileCalls : public testing::Test {
protected:
    void Open(size_t size, uint32_t mode) {
        m_bytes = MakeBytes(size);
        m_folder.WriteFile("f", TextOf(m_bytes));
        m_file.Open(m_folder.Path("f"), mode);
        ASSERT_TRUE(m_file.IsOpen());
        m_driver.ClearLog();
    }
    /// Calls of a kind since the last question.
    uint64_t Calls(uint32_t operations = FileOp::All) {
        const uint64_t calls = m_driver.CountCalls(operations);
        m_driver.ClearLog();
        return calls;
    }
    Bytes Read(size_t count) {
        Bytes bytes(count);
        bytes.resize(static_cast<size_t>(m_file.Read(bytes.data(), count)));
        return bytes;
    }
    Bytes Slice(size_t from, size_t count) const {
        return Bytes(m_bytes.begin() + static_cast<int64_t>(from),
                     m_bytes.begin() + static_cast<int64_t>(from + count));
    }

    FaultFileDriver m_driver;
    ScopedFileDriver m_scope{m_driver};
    TempFolder m_folder;
    Bytes m_bytes;
    CXStreamFile m_file;
};

TEST_F(StreamFileCalls, TheOverlapServesShortStepsBack) {
    Open(10000, kOpenRead);
    for (size_t i = 0; i < 41; ++i) {
        ASSERT_EQ(Read(100), Slice(i * 100, 100));
    }
    EXPECT_EQ(Calls(), 2U) << "4,100 bytes in small pieces are two fills";
    // The refill at 4,096 kept 128 bytes.
    EXPECT_EQ(m_file.Seek(3968, kCXSeekStart), 3968U);
    EXPECT_EQ(Read(1), Slice(3968, 1));
    EXPECT_EQ(m_file.Seek(8063, kCXSeekStart), 8063U);
    EXPECT_EQ(Calls(), 0U);
    EXPECT_EQ(m_file.Seek(3967, kCXSeekStart), 3967U);
    EXPECT_EQ(Calls(), 1U);
    EXPECT_EQ(Read(1), Slice(3967, 1));
}

TEST_F(StreamFileCalls, LargeTransfersBypassTheBuffer) {
    Open(20000, kOpenWrite);
    EXPECT_EQ(Read(2049), Slice(0, 2049));
    EXPECT_EQ(Calls(), 1U);
    EXPECT_EQ(m_file.m_windowBase, nullptr);
    EXPECT_EQ(Read(2048), Slice(2049, 2048));
    EXPECT_NE(m_file.m_windowBase, nullptr);
    // Half of it is in the window, the rest comes in one transfer, and the window is empty then.
    EXPECT_EQ(Read(8000), Slice(4097, 8000));
    EXPECT_EQ(Calls(), 2U);
    EXPECT_EQ(m_file.m_readLimit, m_file.m_windowBase);
    EXPECT_EQ(m_file.GetPosition(), 12097U);

    m_file.Seek(0, kCXSeekStart);
    Calls();
    const Bytes fresh = MakeBytes(5000, 5);
    EXPECT_EQ(m_file.Write(fresh.data(), 5000), 5000U);
    EXPECT_EQ(Calls(FileOp::Write), 1U);
    EXPECT_EQ(m_file.Write(fresh.data(), 2000), 2000U);
    EXPECT_EQ(m_file.Write(fresh.data(), 2000), 2000U);
    EXPECT_EQ(Calls(), 0U);
    EXPECT_EQ(m_file.Write(fresh.data(), 97), 97U) << "does not fit behind the 4,000";
    EXPECT_EQ(Calls(FileOp::Write), 1U);
    EXPECT_EQ(m_file.Seek(-50, kCXSeekRelative), 9047U);
    EXPECT_TRUE(m_file.WriteU8(0xAB));
    EXPECT_EQ(Calls(), 0U) << "within the written part";
    m_file.Flush();
    EXPECT_EQ(Calls(FileOp::Write), 1U);
    EXPECT_EQ(m_file.GetPosition(), 9048U) << "not the end of what was written";
    EXPECT_EQ(Read(1), Bytes(1, fresh[48]));
    m_file.Flush();
    EXPECT_EQ(Calls(FileOp::Flush), 0U);
    m_file.Flush(kCXFlushToDevice);
    EXPECT_EQ(Calls(FileOp::Flush), 1U);
}

TEST_F(StreamFileCalls, BufferSizesAreOptions) {
    Open(100000, kOpenWrite);
    EXPECT_EQ(Read(10), Slice(0, 10));
    EXPECT_TRUE(m_file.SetOption(kCXStreamOptionReadBuffer, 65536));
    EXPECT_TRUE(m_file.SetOption(kCXStreamOptionOverlap, 0));
    EXPECT_EQ(m_file.GetPosition(), 10U);
    Calls();
    for (size_t i = 0; i < 60; ++i) {
        ASSERT_EQ(Read(1000), Slice(10 + i * 1000, 1000));
    }
    EXPECT_EQ(Calls(), 1U);
    m_file.WriteU8(1);
    EXPECT_TRUE(m_file.SetOption(kCXStreamOptionWriteBuffer, 0));
    EXPECT_EQ(Calls(FileOp::Write), 1U);
    m_file.WriteU8(2);
    EXPECT_EQ(Calls(FileOp::Write), 1U) << "no buffer, every write goes through";
    EXPECT_FALSE(m_file.SetOption(kCXStreamOptionReserve, 100));
}

TEST_F(StreamFileCalls, AReadErrorIsNotAnEnd) {
    Open(30000, kOpenRead);
    EXPECT_EQ(Read(100).size(), 100U);
    m_driver.Fail(FileFault::Device, 1, 2, FileOp::Read);
    EXPECT_EQ(Read(4000).size(), 3996U);
    EXPECT_EQ(Read(4000).size(), 0U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultNoResources);
    EXPECT_FALSE(m_file.IsAtEnd());
    EXPECT_EQ(m_file.GetPosition(), 4096U);
    EXPECT_EQ(Read(4000), Slice(4096, 4000)) << "later reads are attempted";
    m_driver.Fail(FileFault::Denied, 1, 1, FileOp::Read);
    EXPECT_EQ(Read(20).size(), 0U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultAccessDenied);
    m_file.ResetError();
    EXPECT_EQ(Read(20), Slice(8096, 20));
    m_driver.Fail(FileFault::Device, 1, 1, FileOp::Seek);
    EXPECT_EQ(m_file.Seek(0, kCXSeekStart), 0U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultNoResources);
    EXPECT_EQ(m_file.GetPosition(), 8116U);
    EXPECT_EQ(Read(20), Slice(8116, 20));
}

TEST_F(StreamFileCalls, AFullDiskShowsInCountOrError) {
    Open(0, kOpenWrite);
    const Bytes fresh = MakeBytes(9000, 3);
    m_driver.Fail(FileFault::Full, 2, 2, FileOp::Write);
    EXPECT_EQ(m_file.Write(fresh.data(), 5000), 5000U);
    EXPECT_EQ(m_file.Write(fresh.data(), 5000), 0U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultNoResources);
    m_file.ResetError();
    EXPECT_EQ(m_file.GetPosition(), 5000U);
    // What waits in the window is lost at the flush, and the stream says so.
    EXPECT_EQ(m_file.Write(fresh.data(), 100), 100U);
    m_driver.Fail(FileFault::Full, 1, 1, FileOp::Write);
    m_file.Flush();
    EXPECT_EQ(m_file.GetLastError(), kCXResultNoResources);
    EXPECT_EQ(m_file.GetSize(), 5000U);
    m_driver.Heal();
    m_file.ResetError();
    m_file.SetSize(0);
    // Short counts are tried again.
    m_driver.Fail(FileFault::ShortWrite, 1, 4, FileOp::Write);
    EXPECT_EQ(m_file.Write(fresh.data(), 9000), 9000U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultOK);
    m_file.Close();
    EXPECT_EQ(m_folder.ReadFile("f"), TextOf(fresh));
}

// The raw position must never part from the logical one: data would land in the wrong place.
TEST_F(StreamFileCalls, AFailedSeekMovesNothing) {
    Open(10000, kOpenWrite);
    EXPECT_EQ(Read(10), Slice(0, 10));
    m_driver.Fail(FileFault::Device, 1, 1, FileOp::Seek);
    EXPECT_FALSE(m_file.WriteU8(0xEE)) << "the read window can't be given up";
    m_driver.Fail(FileFault::Device, 1, 2, FileOp::Seek);
    EXPECT_EQ(m_file.Seek(9000, kCXSeekStart), 0U);
    EXPECT_EQ(m_file.GetLastError(), kCXResultNoResources);
    EXPECT_EQ(m_file.GetPosition(), 10U);
    EXPECT_EQ(Read(5000), Slice(10, 5000));
    m_file.ResetError();
    EXPECT_TRUE(m_file.WriteU8(0xEE));
    m_file.Close();
    m_bytes[5010] = 0xEE;
    EXPECT_EQ(m_folder.ReadFile("f"), TextOf(m_bytes));
}

/// A session that uses every call; true if the stream reported no failure.
bool RunSession(const CXString& path) {
    CXStreamFile file;
    file.Open(path, kOpenWrite | kOpenCreate | kOpenTruncate | kOpenExclusive);
    bool good = file.GetLastError() == kCXResultOK;
    const Bytes bytes = MakeBytes(7000);
    good &= file.Write(bytes.data(), 100) == 100;
    good &= file.Write(bytes.data() + 100, 6900) == 6900;
    file.Seek(50, kCXSeekStart);
    Bytes back(3000);
    good &= file.Read(back.data(), 60) == 60;
    good &= file.Read(back.data(), 3000) == 3000;
    file.Seek(-1, kCXSeekEnd);
    good &= file.WriteU32(1);
    file.SetSize(7001);
    file.Flush(kCXFlushToDevice);
    file.Close();
    return good && file.GetLastError() == kCXResultOK;
}

TEST_F(StreamFileCalls, EveryCallFailingOnce) {
    const CXString path = m_folder.Path("session");
    ASSERT_TRUE(RunSession(path));
    const uint64_t calls = Calls();
    ASSERT_GT(calls, 12U);
    for (const FileFault fault : {FileFault::Busy, FileFault::Full, FileFault::Device}) {
        for (uint64_t n = 1; n <= calls; ++n) {
            m_driver.Heal();
            m_driver.ClearLog();
            m_driver.Fail(fault, n, n);
            const bool failed = !RunSession(path);
            const std::vector<FileAccess> log = m_driver.GetLog();
            // The file was made empty by opening it; that the size is set again is a formality.
            const auto first = log.begin() + std::min<ptrdiff_t>(4, std::ssize(log));
            const bool truncation = std::any_of(log.begin(), first, [](const FileAccess& access) {
                return access.failed && access.op != FileOp::OpenWrite;
            });
            EXPECT_TRUE(failed || truncation) << "call " << n << "\n"
                                              << FaultFileDriver::Describe(log);
            EXPECT_EQ(m_driver.CountCalls(FileOp::Close), log[0].failed ? 0U : 1U);
            EXPECT_FALSE(CXExclusivePaths::Contains(path));
        }
    }
}

} // namespace

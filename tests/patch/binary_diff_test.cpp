// The diff's reader and writer, and the unchecked task.
#include "patch/BinaryDiff.h"
#include "patch/VelPatchTask_ApplyFileDiff.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "stream/CXStreamStaticBuffer.h"
#include "tests/patch/PatchScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <thread>

namespace {

std::string Replace(uint32_t skip, const std::string& bytes) {
    return std::string(1, '\0') + BigEndian(skip, 4) + BigEndian(bytes.size(), 4) + bytes;
}
std::string Copy(uint32_t length) {
    return "\x01" + BigEndian(length, 4);
}

std::unique_ptr<CXStreamDynamicBuffer> BufferOf(const std::string& bytes) {
    auto stream = std::make_unique<CXStreamDynamicBuffer>();
    stream->Write(bytes.data(), bytes.size());
    stream->Seek(0, kCXSeekStart);
    return stream;
}

std::string ContentsOf(CXStream& stream) {
    stream.Seek(0, kCXSeekStart);
    std::string out(stream.GetSize(), '\0');
    stream.Read(out.data(), out.size());
    return out;
}

TEST(BinaryDiff, Table) {
    struct Case {
        const char* name;
        std::string oldBytes;
        std::string diff;
        CXResult result;
        std::string newBytes;
        const char* message;
    };
    const std::string old28 = "0123456789abcdefXXXXstuvwxyz";
    const Case cases[] = {
        {"empty diff", "abc", "", kCXResultOK, "", ""},
        {"one copy", "abc", Copy(3), kCXResultOK, "abc", ""},
        {"keep, swap, keep", old28, Copy(16) + Replace(4, "\xAA\xBB") + Copy(8), kCXResultOK,
         "0123456789abcdef\xAA\xBBstuvwxyz", ""},
        {"nothing, insertion, deletion", "abc",
         Copy(0) + Replace(0, "in") + Replace(2, "") + Copy(1), kCXResultOK, "inc", ""},
        {"copy past the end", "abc", Copy(4), kCXResultEndOfStream, "abc",
         "ApplyDiffFromStream> copy(4) returned -3"},
        {"skip past the end alone", "abc", Replace(9, "z"), kCXResultOK, "z", ""},
        {"skip past the end, then copy", "abc", Replace(9, "z") + Copy(1), kCXResultEndOfStream,
         "z", "ApplyDiffFromStream> copy(1) returned -3"},
        {"unknown command", "abc", Copy(1) + "\x02", kCXResultBadData, "a",
         "ApplyDiffFromStream> unknown command: 2"},
        {"cut in a field", "abc", Copy(1) + Copy(1).substr(0, 3), kCXResultEndOfStream, "a",
         "ApplyDiffFromStream> error on input stream: -3"},
        {"cut in the bytes", "abc", Replace(0, "xyz").substr(0, 10), kCXResultEndOfStream, "x",
         "ApplyDiffFromStream> copy(3) returned -3"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        CXStreamStaticBuffer oldStream(test.oldBytes.data(), test.oldBytes.size());
        CXStreamStaticBuffer diffStream(test.diff.data(), test.diff.size());
        CXStreamDynamicBuffer newStream;
        CXString message("left from before");
        EXPECT_EQ(ApplyDiffFromStream(oldStream, newStream, diffStream, message), test.result);
        EXPECT_EQ(message, test.message);
        EXPECT_EQ(ContentsOf(newStream), test.newBytes);
    }
}

TEST(BinaryDiff, WriterIsReadBack) {
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        std::string oldBytes(random() % 3000, '\0');
        std::generate(oldBytes.begin(), oldBytes.end(),
                      [&] { return static_cast<char>(random()); });
        std::string newBytes;
        CXStreamDynamicBuffer diff;
        BinaryDiffStreamWriter writer(diff);
        uint64_t oldAt = 0;
        while (oldAt < oldBytes.size()) {
            const uint64_t end = std::min<uint64_t>(oldBytes.size(), oldAt + 1 + random() % 400);
            if (random() % 2 == 0) {
                writer.EmitMatch(oldAt, end);
                newBytes += oldBytes.substr(oldAt, end - oldAt);
            } else {
                const std::string fresh(random() % 300, static_cast<char>(random()));
                const auto source = BufferOf(newBytes + fresh);
                writer.EmitDifference(oldAt, end, *source, newBytes.size(),
                                      newBytes.size() + fresh.size());
                newBytes += fresh;
            }
            oldAt = end;
        }
        diff.Seek(0, kCXSeekStart);
        const auto oldStream = BufferOf(oldBytes);
        CXStreamDynamicBuffer result;
        CXString message;
        ASSERT_EQ(ApplyDiffFromStream(*oldStream, result, diff, message), kCXResultOK)
            << message.GetData();
        ASSERT_EQ(ContentsOf(result), newBytes);
    }
}

/// Keeps what the task wrote beyond the task's life.
class KeptStream : public CXStreamDynamicBuffer {
public:
    explicit KeptStream(std::string& kept) : m_kept(kept) {}
    ~KeptStream() override { m_kept = ContentsOf(*this); }

private:
    std::string& m_kept;
};

TEST(ApplyFileDiff, PassesOverWhatItDoesNotUnderstand) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {Copy(2) + "\x09\x08" + Replace(1, "Z") + Copy(1), "abZd"},
        {Copy(9) + Replace(0, "!"), "abcd!"},
        {Copy(1) + std::string(1, '\0') + "\xFF\xFF", "a"},
    };
    for (const auto& [diff, result] : cases) {
        std::string kept;
        {
            VelPatchTask_ApplyFileDiff task(BufferOf("abcd"), BufferOf(diff),
                                            std::make_unique<KeptStream>(kept), diff.size());
            EXPECT_TRUE(task.Begin("ignored"));
            TaskStatus status;
            task.GetStatus(status);
            EXPECT_EQ(status.state, static_cast<uint32_t>(kTaskStateNone));
            task.Go();
            while (task.IsRunning()) {
                std::this_thread::yield();
            }
            task.GetStatus(status);
            EXPECT_EQ(status.state, static_cast<uint32_t>(kTaskStateFinished));
            EXPECT_EQ(status.fraction, 1.0F);
            EXPECT_TRUE(status.statusText.IsEmpty());
        }
        EXPECT_EQ(kept, result);
    }
}

} // namespace

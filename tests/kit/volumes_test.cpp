// Volumes: what the kit cuts up is what players' programs put together.
#include "core/CXFileSystem.h"
#include "kit/VelPatchVolumeSet.h"
#include "patch/PatchVolumes.h"
#include "stream/CXStreamDynamicBuffer.h"
#include "tests/support/FaultFileDriver.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>

#include <optional>

namespace {

class Volumes : public testing::Test {
protected:
    CXResult Split(uint64_t size) {
        return SplitDataFile(
            m_folder.Path("data.bin"), m_folder.Path("discs"), size, [](double) { return true; },
            m_volumes, m_problem);
    }
    /// What OpenDataFile makes of a path; nothing if it refuses.
    std::optional<std::string> Read(const std::string& path) {
        const VelPatchDataFile data = OpenDataFile(m_folder.Path(path), m_problem);
        if (!data.stream) {
            return std::nullopt;
        }
        std::string bytes(data.stream->GetRemaining(), '\0');
        EXPECT_EQ(data.stream->Read(bytes.data(), bytes.size()), bytes.size());
        // Each byte is where it is said to be.
        for (size_t at = 0; at < bytes.size(); at += 1 + bytes.size() / 50) {
            uint64_t offset = 0;
            const CXString place = data.FindPlace(at, offset);
            EXPECT_EQ(m_folder.ReadFile(place.GetData())[offset], bytes[at]) << at;
        }
        return bytes;
    }
    std::string Assemble() const {
        CXString from = m_folder.Path("discs");
        EXPECT_TRUE(AssembleVolumes(
            m_folder.Path("assembled"), from, CXString(), [](float) {}, nullptr,
            [] { return false; }));
        return m_folder.ReadFile("assembled");
    }
    bool Complains(const char* word) const {
        return m_problem.View().find(word) != absl::string_view::npos;
    }

    TempFolder m_folder;
    std::vector<CXString> m_volumes;
    CXString m_problem;
};

TEST_F(Volumes, PlayersReadWhatWasCut) {
    std::string data;
    for (int i = 0; i < 200000; i++) {
        data += static_cast<char>(i * 31 >> 3);
    }
    const struct {
        size_t bytes;
        uint64_t volumeSize;
        size_t volumes;
    } cases[] = {
        {200000, 100025, 2},     {200000, 100024, 3}, {200000, 10000000, 1},
        {200000, 25 + 999, 201}, {1, 26, 1},          {0, 26, 1},
    };
    for (const auto& one : cases) {
        m_folder.Remove("discs");
        const std::string part = data.substr(0, one.bytes);
        m_folder.WriteFile("data.bin", part);
        ASSERT_EQ(Split(one.volumeSize), kCXResultOK) << m_problem.GetData();
        EXPECT_EQ(m_volumes.size(), one.volumes);
        EXPECT_EQ(m_folder.Tree("discs").size(), one.volumes);
        for (const auto& [name, entry] : m_folder.Tree("discs")) {
            EXPECT_LE(entry.contents.size(), one.volumeSize) << name;
        }
        EXPECT_EQ(Assemble(), part);
        EXPECT_EQ(Read("discs"), part);
        EXPECT_EQ(Read("discs/patch-1.bin"), part);
    }
    EXPECT_EQ(Read("data.bin"), std::string()) << "a file that is no volume stands for itself";
}

TEST_F(Volumes, WhatCantBeCut) {
    m_folder.WriteFile("data.bin", std::string(5000, 'x'));
    EXPECT_EQ(Split(25), kCXResultInvalidArgument);
    EXPECT_EQ(Split(26), kCXResultInvalidArgument) << "5000 volumes";
    EXPECT_FALSE(m_folder.Has("discs"));
    ASSERT_EQ(Split(1000), kCXResultOK);
    // A shorter set would leave volumes of the longer one behind.
    const TreeSnapshot before = m_folder.Tree("discs");
    EXPECT_EQ(Split(3000), kCXResultAlreadyExists);
    EXPECT_TRUE(Complains("patch-3.bin"));
    EXPECT_EQ(m_folder.Tree("discs"), before);
    EXPECT_EQ(Split(900), kCXResultOK) << "a longer set takes the place of a shorter one";
    EXPECT_EQ(Read("discs"), std::string(5000, 'x'));
    m_folder.WriteFile("data.bin", m_folder.ReadFile("discs/patch-1.bin"));
    EXPECT_EQ(Split(300), kCXResultInvalidArgument) << "a volume";
    m_folder.Remove("data.bin");
    EXPECT_EQ(Split(300), kCXResultNotFound);
}

TEST_F(Volumes, FaultySetsAreNamed) {
    m_folder.WriteFile("data.bin", std::string(3000, 'x'));
    ASSERT_EQ(Split(1025), kCXResultOK);
    const std::string first = m_folder.ReadFile("discs/patch-1.bin");
    const std::string second = m_folder.ReadFile("discs/patch-2.bin");
    const auto with = [](std::string bytes, size_t at, char byte) {
        bytes[at] = byte;
        return bytes;
    };
    const struct {
        std::string bytes; ///< of patch-2.bin
        const char* word;
    } cases[] = {
        {with(second, 0, 'X'), "is no volume"},
        {with(second, 7, 1), "version"},
        {with(second, 8, 1), "is no volume"},
        {with(second, 12, 2), "is volume 3"},
        {with(second, 16, 9), "a set of 9 volumes"},
        {second.substr(0, 1000), "holds 975"},
        {second + "x", "holds 1001"},
        {second.substr(0, 20), "is no volume"},
        {"", "is no volume"},
    };
    for (const auto& one : cases) {
        m_folder.WriteFile("discs/patch-2.bin", one.bytes);
        EXPECT_EQ(Read("discs"), std::nullopt) << one.word;
        EXPECT_TRUE(Complains(one.word) && Complains("patch-2.bin")) << m_problem.GetData();
    }
    m_folder.Remove("discs/patch-2.bin");
    EXPECT_EQ(Read("discs"), std::nullopt);
    EXPECT_TRUE(Complains("patch-2.bin"));
    m_folder.WriteFile("discs/patch-1.bin", with(first, 13, 1)); // a count of 16 million
    EXPECT_EQ(Read("discs"), std::nullopt);
    EXPECT_TRUE(Complains("at most"));
}

/// Whatever call fails, no volume stands under its name unless all of them were written.
TEST_F(Volumes, NothingHalfWritten) {
    m_folder.WriteFile("data.bin", std::string(3000, 'x'));
    for (uint64_t call = 1;; call++) {
        m_folder.Remove("discs");
        FaultFileDriver driver;
        CXResult result = kCXResultOK;
        {
            const ScopedFileDriver scope(driver);
            driver.Fail(FileFault::Full, call, call, FileOp::OpenWrite | FileOp::Write, "patch-");
            result = Split(1025);
        }
        if (driver.CountFaults() == 0) {
            EXPECT_EQ(result, kCXResultOK);
            break;
        }
        EXPECT_NE(result, kCXResultOK) << call;
        EXPECT_FALSE(m_folder.Has("discs")) << call;
    }
    m_folder.Remove("discs");
    EXPECT_EQ(SplitDataFile(
                  m_folder.Path("data.bin"), m_folder.Path("discs"), 1025,
                  [](double fraction) { return fraction < 0.5; }, m_volumes, m_problem),
              kCXResultCancelled);
    EXPECT_TRUE(m_folder.Tree("discs").empty()) << "stopped";
}

} // namespace

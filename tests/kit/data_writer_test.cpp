// The data file's compressor: any inflater must give the bytes back, whatever the pieces, the level
// and the number of threads.
#include "kit/VelPatchDataWriter.h"
#include "kit/VelPatchDeflater.h"
#include "tests/support/TempFolder.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <atomic>
#include <random>
#include <thread>

namespace {

using Bytes = std::vector<uint8_t>;

/// Contents that lead through every kind of block: noise, text, runs, far and near repeats.
Bytes Mixture(std::mt19937& random, size_t size) {
    Bytes bytes;
    while (bytes.size() < size) {
        const size_t count = 1 + random() % 5000;
        const auto kind = random() % 6;
        for (size_t i = 0; i < count; i++) {
            const size_t back = kind == 3 ? 32767 : (kind == 4 ? 32768 : 3);
            switch (kind) {
            case 0:
                bytes.push_back(static_cast<uint8_t>(random()));
                break;
            case 1:
                bytes.push_back(static_cast<uint8_t>("etaoin shrdlu"[random() % 13]));
                break;
            case 2:
                bytes.push_back(0);
                break;
            default:
                bytes.push_back(bytes.size() < back ? uint8_t{7} : bytes[bytes.size() - back]);
            }
        }
    }
    bytes.resize(size);
    return bytes;
}

Bytes Inflated(const std::string& file, size_t size) {
    Bytes bytes(size + 1);
    auto length = static_cast<uLongf>(bytes.size());
    const int result =
        uncompress(bytes.data(), &length, reinterpret_cast<const Bytef*>(file.data()),
                   static_cast<uLong>(file.size()));
    EXPECT_EQ(result, Z_OK);
    bytes.resize(length);
    return bytes;
}

} // namespace

TEST(DataWriter, GivesBackWhatWentIn) {
    const auto seed = static_cast<unsigned>(std::random_device()());
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    TempFolder folder;
    constexpr size_t kPiece = VelPatchDeflater::kMaxPiece;
    for (const size_t size : {size_t{0}, size_t{1}, size_t{2}, size_t{3}, size_t{300}, kPiece - 1,
                              kPiece, kPiece + 1, 8 * kPiece, 9 * kPiece + 77}) {
        const Bytes bytes = Mixture(random, size);
        for (const int level : {1, 6, 9}) {
            SCOPED_TRACE(std::to_string(size) + " bytes, level " + std::to_string(level));
            std::string first;
            for (const unsigned workers : {1U, 3U}) {
                VelPatchDataWriter writer;
                ASSERT_EQ(writer.Open(folder.Path("data"), level), kCXResultOK);
                std::atomic<bool> isAppending{true};
                std::vector<std::thread> helpers;
                for (unsigned i = 1; i < workers; i++) {
                    helpers.emplace_back([&] {
                        while (isAppending) {
                            if (!writer.CompressPiece()) {
                                std::this_thread::yield();
                            }
                        }
                    });
                }
                for (size_t at = 0; at < size;) {
                    const size_t part = std::min(size - at, 1 + random() % (2 * kPiece));
                    writer.Append(std::span<const uint8_t>(bytes).subspan(at, part));
                    at += part;
                }
                isAppending = false;
                for (std::thread& helper : helpers) {
                    helper.join();
                }
                ASSERT_EQ(writer.Close(workers), kCXResultOK);
                const std::string file = folder.ReadFile("data");
                EXPECT_EQ(writer.GetSize(), file.size());
                EXPECT_EQ(writer.GetChecksum(), CXMD5::OfBlock(file.data(), file.size()));
                ASSERT_EQ(Inflated(file, size), bytes);
                first = first.empty() ? file : first;
                ASSERT_EQ(file, first) << "workers show";
            }
        }
    }
}

TEST(DataWriter, NoiseHardlyGrowsAndRunsVanish) {
    std::mt19937 random(5);
    Bytes noise(1 << 20);
    for (uint8_t& byte : noise) {
        byte = static_cast<uint8_t>(random());
    }
    TempFolder folder;
    VelPatchDataWriter writer;
    ASSERT_EQ(writer.Open(folder.Path("data"), 9), kCXResultOK);
    writer.Append(noise);
    ASSERT_EQ(writer.Close(2), kCXResultOK);
    EXPECT_LT(writer.GetSize(), noise.size() + 200);
    VelPatchDataWriter zeros;
    ASSERT_EQ(zeros.Open(folder.Path("data"), 9), kCXResultOK);
    zeros.Append(Bytes(8 << 20));
    ASSERT_EQ(zeros.Close(2), kCXResultOK);
    EXPECT_LT(zeros.GetSize(), 12000U);
}

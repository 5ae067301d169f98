#include "core/BlockAlloc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(BlockAlloc, BlocksAreAlignedDistinctAndWholeInEverySize) {
    struct Held {
        unsigned char* block;
        size_t size;
        unsigned char mark;
    };
    std::vector<Held> held;
    std::set<void*> seen;
    for (int round = 0; round < 20; ++round) {
        for (size_t size = 0; size <= 300; ++size) {
            auto* block = static_cast<unsigned char*>(BlockAlloc::Allocate(size));
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0u) << size;
            EXPECT_TRUE(seen.insert(block).second) << "handed out twice";
            const auto mark = static_cast<unsigned char>(held.size() * 7);
            std::memset(block, mark, size);
            held.push_back({block, size, mark});
        }
    }
    for (const Held& item : held) {
        for (size_t index = 0; index < item.size; ++index) {
            ASSERT_EQ(item.block[index], item.mark) << "size " << item.size;
        }
        BlockAlloc::Free(item.block, item.size);
    }
    BlockAlloc::Free(nullptr, 16);
}

TEST(BlockAlloc, CacheIsRefilledBy1024BlocksAndGivenBack) {
    std::thread([] {
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 0u);
        void* small = BlockAlloc::Allocate(33);
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 1023u);
        void* sameClass = BlockAlloc::Allocate(48);
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 1022u);
        void* otherClass = BlockAlloc::Allocate(256);
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 1022u + 1023u);
        void* large = BlockAlloc::Allocate(257);
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 1022u + 1023u);
        BlockAlloc::Free(small, 33);
        BlockAlloc::Free(sameClass, 48);
        BlockAlloc::ReleaseThreadCache();
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 0u);
        BlockAlloc::Free(otherClass, 256);
        BlockAlloc::Free(large, 257);
        EXPECT_EQ(BlockAlloc::CountThreadCacheBlocks(), 1u);
    }).join();
}

// Strings with static or thread lifetime come and go around the life of the thread's cache.
TEST(BlockAlloc, ServesDestructorsThatRunAfterTheCache) {
    struct Late {
        void* block = nullptr;
        ~Late() {
            void* another = BlockAlloc::Allocate(100);
            std::memset(another, 1, 100);
            BlockAlloc::Free(another, 100);
            BlockAlloc::Free(block, 100);
        }
    };
    std::thread([] {
        // Made before the cache, so destroyed after it.
        static thread_local Late late;
        late.block = nullptr;
        late.block = BlockAlloc::Allocate(100);
    }).join();
}

TEST(BlockAlloc, BlocksMayBeFreedByAnotherThread) {
    constexpr int kRounds = 50;
    for (int round = 0; round < kRounds; ++round) {
        std::vector<void*> blocks(3000);
        std::thread maker([&] {
            for (void*& block : blocks) {
                block = BlockAlloc::Allocate(64);
                std::memset(block, round, 64);
            }
        });
        maker.join();
        std::vector<std::jthread> freers;
        for (size_t half = 0; half < 2; ++half) {
            freers.emplace_back([&, half] {
                for (size_t index = half; index < blocks.size(); index += 2) {
                    ASSERT_EQ(static_cast<char*>(blocks[index])[63], static_cast<char>(round));
                    BlockAlloc::Free(blocks[index], 64);
                }
            });
        }
        freers.clear(); // waits for each
    }
}

} // namespace

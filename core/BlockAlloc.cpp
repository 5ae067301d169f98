#include "core/BlockAlloc.h"

#include "core/CXLock.h"

#include <cstdint>
#include <cstdlib>
#include <type_traits>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) (static_cast<void>(address))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) (static_cast<void>(address))
#endif

namespace {

constexpr size_t kClassCount = 8;
constexpr size_t kRefillBlocks = 1024;
constexpr size_t kClassSizes[kClassCount] = {16, 32, 48, 64, 96, 128, 192, 256};
// Class by the size in sixteenths, rounded up.
constexpr uint8_t kClassBySixteenths[17] = {0, 0, 1, 2, 3, 4, 4, 5, 5, 6, 6, 6, 6, 7, 7, 7, 7};

size_t ClassOf(size_t size) {
    return kClassBySixteenths[(size + 15) / 16];
}

// One or more free blocks that lie side by side; the record stands in the first of them. A fresh
// chunk is one long run, so its pages are not touched before they are needed.
struct FreeRun {
    FreeRun* next;
    size_t blocks;
};
static_assert(sizeof(FreeRun) <= kClassSizes[0]);

// Address sanitizer: what lies behind the run record of a free block is out of bounds.
void MarkFree(void* block, size_t blockSize) {
    char* rest = static_cast<char*>(block) + sizeof(FreeRun);
    ASAN_POISON_MEMORY_REGION(rest, blockSize - sizeof(FreeRun));
    static_cast<void>(blockSize);
    static_cast<void>(rest);
}

void MarkUsed(void* block, size_t blockSize, size_t size) {
    ASAN_UNPOISON_MEMORY_REGION(block, size);
    ASAN_POISON_MEMORY_REGION(static_cast<char*>(block) + size, blockSize - size);
    static_cast<void>(block);
    static_cast<void>(blockSize);
    static_cast<void>(size);
}

// The free blocks of one class.
struct FreeSet {
    FreeRun* head = nullptr;
    size_t blocks = 0;

    void PushRun(void* first, size_t count) {
        auto* run = static_cast<FreeRun*>(first);
        run->next = head;
        run->blocks = count;
        head = run;
        blocks += count;
    }
    // Takes `count` blocks from the first run, which holds at least that many; from its far end,
    // so that the record stays where it is.
    void* Take(size_t count, size_t blockSize) {
        FreeRun* run = head;
        blocks -= count;
        run->blocks -= count;
        if (run->blocks == 0) {
            head = run->next;
            return run;
        }
        return reinterpret_cast<char*>(run) + run->blocks * blockSize;
    }
};

struct alignas(64) Pool {
    CXCriticalSection lock;
    FreeSet set;
};
struct PoolTable {
    Pool pools[kClassCount];
};

// Static strings are released after everything else, so the pools are never torn down.
Pool& PoolOf(size_t index) {
    static CXImmortal<PoolTable> table;
    return table.Get().pools[index];
}

// Moves blocks from the pool into `into` until that holds `wanted`; a pool that runs short gets a
// fresh chunk. False when not a single block is to be had. The pool's lock is held.
bool DrawFromPool(Pool& pool, size_t blockSize, size_t wanted, FreeSet& into) {
    while (into.blocks < wanted) {
        if (pool.set.head == nullptr) {
            void* chunk = std::malloc(blockSize * kRefillBlocks);
            if (chunk == nullptr) {
                break;
            }
            pool.set.PushRun(chunk, kRefillBlocks);
        }
        const size_t missing = wanted - into.blocks;
        const size_t count = pool.set.head->blocks < missing ? pool.set.head->blocks : missing;
        void* first = pool.set.Take(count, blockSize);
        into.PushRun(first, count);
    }
    return into.blocks != 0;
}

enum class CacheState : uint8_t { Fresh, Live, Gone };

struct ThreadCache {
    FreeSet sets[kClassCount];
    CacheState state = CacheState::Fresh;
};
static_assert(std::is_trivially_destructible_v<ThreadCache>);
constinit thread_local ThreadCache t_cache;

void GiveBack(ThreadCache& cache) {
    for (size_t index = 0; index < kClassCount; ++index) {
        FreeSet& set = cache.sets[index];
        if (set.head == nullptr) {
            continue;
        }
        FreeRun* last = set.head;
        while (last->next != nullptr) {
            last = last->next;
        }
        Pool& pool = PoolOf(index);
        const CXCriticalSectionGuard guard(pool.lock);
        last->next = pool.set.head;
        pool.set.head = set.head;
        pool.set.blocks += set.blocks;
        set = FreeSet();
    }
}

// Gives the lists back when the thread ends; the cache itself is plain memory and stays readable.
struct CacheEnd {
    bool armed = false;
    ~CacheEnd() {
        GiveBack(t_cache);
        t_cache.state = CacheState::Gone;
    }
};
thread_local CacheEnd t_cacheEnd;

void* AllocateSlow(size_t index, size_t size) {
    ThreadCache& cache = t_cache;
    const size_t blockSize = kClassSizes[index];
    FreeSet single;
    FreeSet& set = cache.state == CacheState::Gone ? single : cache.sets[index];
    if (cache.state == CacheState::Fresh) {
        cache.state = CacheState::Live;
        t_cacheEnd.armed = true;
    }
    {
        Pool& pool = PoolOf(index);
        const CXCriticalSectionGuard guard(pool.lock);
        if (!DrawFromPool(pool, blockSize, &set == &single ? 1 : kRefillBlocks, set)) {
            return nullptr;
        }
    }
    void* block = set.Take(1, blockSize);
    MarkUsed(block, blockSize, size);
    return block;
}

void FreeSlow(void* block, size_t index) {
    ThreadCache& cache = t_cache;
    if (cache.state == CacheState::Fresh) {
        cache.state = CacheState::Live;
        t_cacheEnd.armed = true;
        cache.sets[index].PushRun(block, 1);
        return;
    }
    Pool& pool = PoolOf(index);
    const CXCriticalSectionGuard guard(pool.lock);
    pool.set.PushRun(block, 1);
}

} // namespace

void* BlockAlloc::Allocate(size_t size) {
    if (size > kLargestBlock) {
        return std::malloc(size);
    }
    if (size == 0) {
        size = 1;
    }
    const size_t index = ClassOf(size);
    FreeSet& set = t_cache.sets[index];
    if (set.head == nullptr) [[unlikely]] {
        return AllocateSlow(index, size);
    }
    void* block = set.Take(1, kClassSizes[index]);
    MarkUsed(block, kClassSizes[index], size);
    return block;
}

void BlockAlloc::Free(void* block, size_t size) {
    if (block == nullptr) {
        return;
    }
    if (size > kLargestBlock) {
        std::free(block);
        return;
    }
    const size_t index = ClassOf(size);
    ASAN_UNPOISON_MEMORY_REGION(block, sizeof(FreeRun));
    MarkFree(block, kClassSizes[index]);
    ThreadCache& cache = t_cache;
    if (cache.state != CacheState::Live) [[unlikely]] {
        FreeSlow(block, index);
        return;
    }
    cache.sets[index].PushRun(block, 1);
}

void BlockAlloc::ReleaseThreadCache() {
    GiveBack(t_cache);
}

size_t BlockAlloc::CountThreadCacheBlocks() {
    size_t count = 0;
    for (const FreeSet& set : t_cache.sets) {
        count += set.blocks;
    }
    return count;
}

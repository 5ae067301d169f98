// Small-block allocator: eight size classes, a free list per thread and class over a shared pool.
#pragma once

#include <cstddef>

/// Serves blocks of 16, 32, 48, 64, 96, 128, 192 and 256 bytes from the calling thread's cache; an
/// empty list is refilled by 1,024 blocks from a process-wide pool. Sizes above 256 bytes go to the
/// general heap. Any thread may free a block that another thread allocated. The pool is never
/// destroyed, so blocks may be freed by destructors of static objects; after the calling thread's
/// cache is gone the calls go to the pool directly.
namespace BlockAlloc {

inline constexpr size_t kLargestBlock = 256;

/// A block of at least `size` bytes, aligned to 16 bytes, or null when memory is exhausted.
/// A size of 0 counts as 1.
void* Allocate(size_t size);

/// Gives back a block. `size` is the size that was asked for. Null is allowed.
void Free(void* block, size_t size);

/// Gives the calling thread's free lists back to the shared pool; the cache stays usable.
void ReleaseThreadCache();

/// Number of free blocks held in the calling thread's cache, over all classes (for tests).
size_t CountThreadCacheBlocks();

} // namespace BlockAlloc

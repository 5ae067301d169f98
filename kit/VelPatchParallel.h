// The same work on many items, on several threads.
#pragma once

#include <cstddef>
#include <functional>

/// Threads that the system can run at once; at least 1.
unsigned GetProcessorCount();

/// Calls work(0) to work(count - 1), each once, on up to `workers` threads that take the next index
/// when they are free. Meanwhile the calling thread calls `tick` a few times a second with the
/// number of items done; false hands out no more of them. Answers whether all were done. Where no
/// thread can be had the calling thread does the work.
bool RunParallel(size_t count, unsigned workers, const std::function<void(size_t)>& work,
                 const std::function<bool(size_t)>& tick);
/// The same without a tick: the calling thread is one of the workers, so one worker takes no
/// thread.
void RunParallel(size_t count, unsigned workers, const std::function<void(size_t)>& work);

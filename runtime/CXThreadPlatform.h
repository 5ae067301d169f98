// The few things that CXThread asks of the operating system.
#pragma once

#include "core/CXLock.h"

#include <cstdint>

namespace CXThreadPlatform {

/// Starts a thread that runs `entry(argument)`. `stackSize` in bytes is a lower bound. On success
/// `handle` must be given to `Join` once, and `id` is the new thread's CXCurrentThreadId().
bool Create(void (*entry)(void*), void* argument, uint32_t stackSize, uintptr_t& handle,
            CXThreadId& id);
/// Waits for the end of the thread and releases the handle.
void Join(uintptr_t handle);

/// Number of the calling thread for `SetPriority`; never 0.
uint64_t GetNativeId();
/// Sets a thread's priority by the table of CXThread::SetPriority; failures are ignored. The
/// background mode of priority 3 exists only on Windows and only for the calling thread.
void SetPriority(uint64_t nativeId, int32_t priority);
/// Tells the debugger the calling thread's name, cut to what the platform holds.
void SetName(const char* name);

uint32_t GetProcessId();

} // namespace CXThreadPlatform

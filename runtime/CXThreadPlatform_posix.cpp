#include "runtime/CXThreadPlatform.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <condition_variable>
#include <cstring>

namespace {

constexpr size_t kLeastStack = 8 * 1024 * 1024;
constexpr size_t kNameBytes = 15; // the kernel's limit without the terminator

/// Lives on the creator's stack until the new thread has told its id.
struct StartRecord {
    void (*entry)(void*);
    void* argument;
    CXCriticalSection lock;
    std::condition_variable told;
    CXThreadId id = kCXNoThread;
};

void* Trampoline(void* pointer) {
    auto* record = static_cast<StartRecord*>(pointer);
    void (*const entry)(void*) = record->entry;
    void* const argument = record->argument;
    {
        const CXCriticalSectionGuard guard(record->lock);
        record->id = CXCurrentThreadId();
        record->told.notify_one();
    }
    entry(argument);
    return nullptr;
}

} // namespace

bool CXThreadPlatform::Create(void (*entry)(void*), void* argument, uint32_t stackSize,
                              uintptr_t& handle, CXThreadId& id) {
    static_assert(sizeof(pthread_t) <= sizeof(uintptr_t));
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setstacksize(&attributes, std::max<size_t>(kLeastStack, stackSize));
    StartRecord record{.entry = entry, .argument = argument, .lock = {}, .told = {}};
    pthread_t thread;
    const bool created = pthread_create(&thread, &attributes, Trampoline, &record) == 0;
    pthread_attr_destroy(&attributes);
    if (!created) {
        return false;
    }
    std::unique_lock<CXCriticalSection> guard(record.lock);
    record.told.wait(guard, [&record] { return record.id != kCXNoThread; });
    id = record.id;
    handle = static_cast<uintptr_t>(thread);
    return true;
}

void CXThreadPlatform::Join(uintptr_t handle) {
    pthread_join(static_cast<pthread_t>(handle), nullptr);
}

uint64_t CXThreadPlatform::GetNativeId() {
    return static_cast<uint64_t>(syscall(SYS_gettid));
}

void CXThreadPlatform::SetPriority(uint64_t nativeId, int32_t priority) {
    static constexpr int kNice[] = {-5, 0, 5, 15, 0};
    if (priority >= 0 && priority < 5) {
        setpriority(PRIO_PROCESS, static_cast<id_t>(nativeId), kNice[priority]);
    }
}

void CXThreadPlatform::SetName(const char* name) {
    char cut[kNameBytes + 1] = {};
    std::strncpy(cut, name, kNameBytes);
    pthread_setname_np(pthread_self(), cut);
}

uint32_t CXThreadPlatform::GetProcessId() {
    return static_cast<uint32_t>(getpid());
}

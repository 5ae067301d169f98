// Start and stop of the runtime on the main thread, and the modules that want to be told.
#pragma once

#include <cstdint>

/// A part of the program that is told when the runtime has started and when it is about to stop.
class CXRuntimeModule {
public:
    virtual ~CXRuntimeModule() = default;
    /// On the main thread, when everything else stands.
    virtual void RuntimeStarted() = 0;
    /// On the main thread, while all but the workers still stands.
    virtual void RuntimeStopping() = 0;
};

/// Both calls are for the main thread and do nothing when repeated.
class CXRuntime {
public:
    /// Takes the first time sample and seeds the random numbers, then brings up the thread registry
    /// with the main thread's object "main", the main thread's task host, event context and message
    /// queue, and tells the modules in the order of their ids.
    static void Start();
    /// The reverse. Windows, tasks and whatever else uses the runtime are gone by then; the worker
    /// host is stopped if that hasn't happened yet.
    static void Stop();
    static bool IsStarted();

    /// Enters a module, which must stay until it is removed; one that comes after the start is told
    /// at once. An id that is taken is replaced.
    static void AddModule(uint32_t id, CXRuntimeModule* module);
    static void RemoveModule(uint32_t id);
};

/// Starts and stops the runtime with a scope, as a program's main does.
class CXRuntimeScope {
public:
    CXRuntimeScope() { CXRuntime::Start(); }
    ~CXRuntimeScope() { CXRuntime::Stop(); }
    CXRuntimeScope(const CXRuntimeScope&) = delete;
    CXRuntimeScope& operator=(const CXRuntimeScope&) = delete;
};

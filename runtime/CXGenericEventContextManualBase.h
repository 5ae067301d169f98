// The handler table that both kinds of event context share.
#pragma once

#include "core/CXLock.h"
#include "runtime/CXGenericEventContext.h"

#include <cstddef>
#include <cstdint>
#include <vector>

/// Implements the whole of CXGenericEventContext; a derived class decides when to pass. Entries
/// that are left when it is destroyed are abandoned.
class CXGenericEventContextManualBase : public CXGenericEventContext {
public:
    CXGenericEventContextManualBase() = default;
    ~CXGenericEventContextManualBase() override;

    void AddHandler(CXGenericEventRef ref, void* target, std::function<int()> handler) override;
    void AddCallback(CXGenericEventRef ref, void* target, Callback callback,
                     void* userData) override;
    void RemoveHandlersForEvent(CXGenericEventRef ref, void* target) override;
    void RemoveCallback(void* target, Callback callback, void* userData) override;
    void RemoveHandlersForTarget(void* target) override;

    /// Number of entries (for tests).
    size_t CountHandlers();

protected:
    /// One pass over the table; called from within a handler it does nothing. A handler that
    /// removes itself by one of the operations, and not by its result, keeps the rest of the pass
    /// from moving past entries that fire: they are called again until their event stops holding.
    void RunPass();

private:
    struct Handler;

    void Append(Handler* handler);
    /// Takes out every entry that `matches`, from the last to the first.
    template <typename Match> void RemoveMatching(const Match& matches);
    /// Takes the entry at `index` out of the table and destroys its contents, at once or, when it
    /// is being called, after the call.
    void RemoveAt(size_t index);

    CXRecursiveLock m_lock;
    std::vector<Handler*> m_handlers;
    size_t m_cursor = 0;
    bool m_removedCurrent = false;
    int64_t m_lastSerial = 0;    // serial at which the previous pass began
    Handler* m_called = nullptr; // entry whose function runs
};

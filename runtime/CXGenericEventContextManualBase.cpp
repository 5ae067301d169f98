#include "runtime/CXGenericEventContextManualBase.h"

#include "core/BlockAlloc.h"
#include "runtime/CXGenericEvent.h"

#include <atomic>
#include <new>
#include <utility>

namespace {
constexpr size_t kGrowStep = 128;
constexpr size_t kHandlerBlock = 192;
} // namespace

/// Uses `callback` when it is set, else `function`.
struct CXGenericEventContextManualBase::Handler : CXGenericEventRef {
    Handler(const CXGenericEventRef& ref, void* handlerTarget)
        : CXGenericEventRef(ref), target(handlerTarget) {}

    /// Lets go of the event and of what the function holds. The block itself stays taken for the
    /// life of the process, in a list that keeps it known to leak checkers.
    void Abandon() {
        static std::atomic<Handler*> abandoned{nullptr};
        Clear();
        function = nullptr;
        nextAbandoned = abandoned.load(std::memory_order_relaxed);
        while (!abandoned.compare_exchange_weak(nextAbandoned, this, std::memory_order_relaxed)) {
        }
    }

    void* target;
    Callback callback = nullptr;
    std::function<int()> function;
    void* userData = nullptr;
    bool removed = false;
    Handler* nextAbandoned = nullptr;

    static Handler* Make(const CXGenericEventRef& ref, void* handlerTarget) {
        static_assert(sizeof(Handler) <= kHandlerBlock);
        return new (BlockAlloc::Allocate(kHandlerBlock)) Handler(ref, handlerTarget);
    }
};

CXGenericEventContextManualBase::~CXGenericEventContextManualBase() {
    for (Handler* handler : m_handlers) {
        handler->Abandon();
    }
}

void CXGenericEventContextManualBase::AddHandler(CXGenericEventRef ref, void* target,
                                                 std::function<int()> handler) {
    Handler* entry = Handler::Make(ref, target);
    entry->function = std::move(handler);
    const CXRecursiveLockGuard guard(m_lock);
    Append(entry);
}

void CXGenericEventContextManualBase::AddCallback(CXGenericEventRef ref, void* target,
                                                  Callback callback, void* userData) {
    const CXRecursiveLockGuard guard(m_lock);
    for (const Handler* handler : m_handlers) {
        if (handler->target == target && handler->callback == callback &&
            handler->userData == userData && handler->IsSameEvent(ref)) {
            return;
        }
    }
    Handler* entry = Handler::Make(ref, target);
    entry->callback = callback;
    entry->userData = userData;
    Append(entry);
}

void CXGenericEventContextManualBase::RemoveHandlersForEvent(CXGenericEventRef ref, void* target) {
    RemoveMatching([&](const Handler& handler) {
        return handler.target == target && handler.IsSameEvent(ref);
    });
}

void CXGenericEventContextManualBase::RemoveCallback(void* target, Callback callback,
                                                     void* userData) {
    RemoveMatching([&](const Handler& handler) {
        return handler.target == target && handler.callback == callback &&
               handler.userData == userData;
    });
}

void CXGenericEventContextManualBase::RemoveHandlersForTarget(void* target) {
    RemoveMatching([&](const Handler& handler) { return handler.target == target; });
}

size_t CXGenericEventContextManualBase::CountHandlers() {
    const CXRecursiveLockGuard guard(m_lock);
    return m_handlers.size();
}

void CXGenericEventContextManualBase::RunPass() {
    const int64_t serial = CXGenericEvent::NextSerial();
    const CXRecursiveLockGuard guard(m_lock);
    if (m_called != nullptr) {
        return; // from within a handler: the pass that called it goes on with its own cursor
    }
    m_cursor = 0;
    m_removedCurrent = false;
    while (m_cursor < m_handlers.size()) {
        Handler* handler = m_handlers[m_cursor];
        if (!handler->TestSince(&m_lastSerial)) {
            ++m_cursor;
            continue;
        }
        m_called = handler;
        const int result = handler->callback != nullptr
                               ? handler->callback(handler->target, handler->userData)
                               : handler->function();
        m_called = nullptr;
        if (handler->removed) {
            handler->Abandon();
        }
        if (m_removedCurrent) {
            continue;
        }
        if (result == 1) {
            ++m_cursor;
        } else {
            RemoveAt(m_cursor);
            m_removedCurrent = false;
        }
    }
    m_lastSerial = serial;
}

void CXGenericEventContextManualBase::Append(Handler* handler) {
    if (m_handlers.size() == m_handlers.capacity()) {
        m_handlers.reserve(m_handlers.size() + kGrowStep);
    }
    m_handlers.push_back(handler);
}

template <typename Match>
void CXGenericEventContextManualBase::RemoveMatching(const Match& matches) {
    const CXRecursiveLockGuard guard(m_lock);
    for (size_t index = m_handlers.size(); index > 0; --index) {
        if (!matches(*m_handlers[index - 1])) {
            continue;
        }
        if (index - 1 < m_cursor) {
            --m_cursor;
        } else if (index - 1 == m_cursor) {
            m_removedCurrent = true;
        }
        RemoveAt(index - 1);
    }
}

void CXGenericEventContextManualBase::RemoveAt(size_t index) {
    Handler* handler = m_handlers[index];
    m_handlers.erase(m_handlers.begin() + static_cast<std::ptrdiff_t>(index));
    handler->removed = true;
    if (handler != m_called) {
        handler->Abandon();
    }
}

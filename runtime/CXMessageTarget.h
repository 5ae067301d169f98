// Anything that messages can be sent to.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"
#include "runtime/CXSafePointer.h"

#include <vector>

class CXMessage;

/// A receiver of messages. What it doesn't handle goes to the next target, which for a widget is
/// its parent. Messages and the listener list belong to the main thread.
class CXMessageTarget : public CXSafePointerTarget {
public:
    ~CXMessageTarget() override = default;

    /// Where messages go that nobody here handles; the base has none.
    virtual CXMessageTarget* GetNextTarget();
    /// A word for diagnostics; the base gives the empty text.
    virtual CXString GetDebugName() const;
    /// Handles a message. The base passes it to the next target; without one the result is
    /// kCXResultNotSupported.
    virtual CXResult ProcessMessage(const CXMessage& message);
    /// "CXMessageTarget{class{address}='debug name'}".
    virtual CXString ToString() const;
    /// Told after a listener was added or removed; the base does nothing.
    virtual void ListenerAdded();
    virtual void ListenerRemoved();
    /// Name of the class for `ToString`.
    virtual const char* GetTypeName() const;

    /// `ToString` of a target that may be null: "CXMessageTarget<NULL>".
    static CXString ToString(const CXMessageTarget* target);

    /// Adds a receiver of broadcasts at the end of the list, once. It isn't owned, and leaves the
    /// list by itself when it dies.
    void AddListener(CXMessageTarget* listener);
    void RemoveListener(CXMessageTarget* listener);
    /// Delivers to all listeners in list order. Those added meanwhile get nothing, those that died
    /// or were removed meanwhile are skipped.
    void Broadcast(const CXMessage& message);
    /// False if a broadcast would reach nobody, so that its message needn't be made.
    bool HasListeners() const { return !m_listeners.empty(); }

private:
    bool IsListener(const CXMessageTarget* listener) const;

    std::vector<CXSafePointer<CXMessageTarget>> m_listeners;
};

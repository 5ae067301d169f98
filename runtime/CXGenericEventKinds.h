// The simple kinds of events: constants, watched variables, predicates.
#pragma once

#include "runtime/CXGenericEvent.h"

#include <atomic>
#include <cstdint>

/// Holds what it was constructed with.
class CXGenericEventBool : public CXGenericEvent {
public:
    explicit CXGenericEventBool(bool value) : m_value(value) {}
    ~CXGenericEventBool() override { DetachRefs(); }
    bool Test() override { return m_value; }

private:
    const bool m_value;
};

/// True while a flag elsewhere differs from a comparison value. The flag must outlive the event.
class CXGenericEventBoolVariable : public CXGenericEvent {
public:
    CXGenericEventBoolVariable(const std::atomic<bool>* variable, bool value)
        : m_variable(variable), m_value(value) {}
    ~CXGenericEventBoolVariable() override { DetachRefs(); }
    bool Test() override { return m_variable->load(std::memory_order_relaxed) != m_value; }

private:
    const std::atomic<bool>* m_variable;
    const bool m_value;
};

/// Asks a plain function. It runs on the polling thread under the event lock.
class CXGenericEventPredicate : public CXGenericEvent {
public:
    using Function = bool (*)(void* userData);
    CXGenericEventPredicate(Function function, void* userData)
        : m_function(function), m_userData(userData) {}
    ~CXGenericEventPredicate() override { DetachRefs(); }
    bool Test() override { return m_function(m_userData); }

private:
    const Function m_function;
    void* const m_userData;
};

/// Watches an event serial elsewhere (see CXGenericEvent::NextSerial): true in `Test` once it is
/// not 0, in `TestSince` when it is later than the given serial. It must outlive the event.
class CXGenericEventTimestampVariable : public CXGenericEvent {
public:
    explicit CXGenericEventTimestampVariable(const std::atomic<int64_t>* variable)
        : m_variable(variable) {}
    ~CXGenericEventTimestampVariable() override { DetachRefs(); }
    bool Test() override { return m_variable->load(std::memory_order_relaxed) != 0; }
    bool TestSince(const int64_t* serial) override {
        return m_variable->load(std::memory_order_relaxed) > *serial;
    }

private:
    const std::atomic<int64_t>* m_variable;
};

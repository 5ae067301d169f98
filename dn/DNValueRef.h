// The counted reference to a DNValue.
#pragma once

#include "dn/DNValue.h"

/// Holds one count of a value; never null: an unset reference stands for the
/// shared empty value, so `->` is always allowed. One reference object belongs
/// to one thread at a time; a reference that several threads share is read
/// through FromShared and changed through StoreShared.
class DNValueRef {
public:
    DNValueRef() noexcept : m_value(nullptr) {}
    DNValueRef(DNValue* value) : m_value(value) {
        if (m_value) {
            m_value->AddReference();
        }
    }
    DNValueRef(const DNValueRef& other) : DNValueRef(other.m_value) {}
    DNValueRef(DNValueRef&& other) noexcept : m_value(other.m_value) { other.m_value = nullptr; }
    ~DNValueRef() {
        if (m_value) {
            m_value->RemoveReference();
        }
    }
    DNValueRef& operator=(const DNValueRef& other) {
        DNValueRef copy(other);
        Swap(copy);
        return *this;
    }
    DNValueRef& operator=(DNValueRef&& other) noexcept {
        DNValueRef taken(static_cast<DNValueRef&&>(other));
        Swap(taken);
        return *this;
    }

    DNValue* Get() const { return m_value ? m_value : DNValue::SharedEmpty(); }
    DNValue* operator->() const { return Get(); }
    DNValue& operator*() const { return *Get(); }
    /// False for an unset reference (which also reads as the empty value).
    bool IsSet() const { return m_value != nullptr; }
    void Clear() { DNValueRef().Swap(*this); }
    void Swap(DNValueRef& other) noexcept {
        DNValue* value = m_value;
        m_value = other.m_value;
        other.m_value = value;
    }

    /// A reference taken from one that another thread may replace at this moment.
    static DNValueRef FromShared(const DNValueRef& holder);
    /// Replaces a reference that other threads read with FromShared.
    static void StoreShared(DNValueRef& holder, const DNValueRef& value);

private:
    DNValue* m_value;
};

/// Identity, not contents.
inline bool operator==(const DNValueRef& a, const DNValueRef& b) {
    return a.Get() == b.Get();
}
inline bool operator!=(const DNValueRef& a, const DNValueRef& b) {
    return a.Get() != b.Get();
}

// Strong reference to a DynamicReferenceCount.
#pragma once

#include <utility>

/// Keeps an object of type T (derived from DynamicReferenceCount) alive; may be null. One reference
/// object is not to be changed by two threads at once.
template <typename T> class CXReference {
public:
    CXReference() = default;
    CXReference(T* object) : m_object(object) {
        if (m_object != nullptr) {
            m_object->AddReference();
        }
    }
    CXReference(const CXReference& other) : CXReference(other.m_object) {}
    CXReference(CXReference&& other) noexcept : m_object(std::exchange(other.m_object, nullptr)) {}
    ~CXReference() {
        if (m_object != nullptr) {
            m_object->RemoveReference();
        }
    }
    CXReference& operator=(CXReference other) noexcept {
        std::swap(m_object, other.m_object);
        return *this;
    }

    T* Get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

private:
    T* m_object = nullptr;
};

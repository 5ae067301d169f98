#include "runtime/CXSafePointer.h"

namespace {
CXCriticalSection& GetSection() {
    static CXCriticalSection* section = new CXCriticalSection; // outlives static pointers
    return *section;
}
} // namespace

CXSafePointerTarget::~CXSafePointerTarget() {
    ClearSafePointers();
}

void CXSafePointerTarget::ClearSafePointers() {
    const CXCriticalSectionGuard guard(GetSection());
    while (m_head != nullptr) {
        m_head->Unlink();
    }
}

void CXSafePointerBase::Set(CXSafePointerTarget* target) {
    if (target == nullptr && GetTarget() == nullptr) {
        return;
    }
    const CXCriticalSectionGuard guard(GetSection());
    Unlink();
    Link(target);
}

void CXSafePointerBase::SetFrom(const CXSafePointerBase& other) {
    const CXCriticalSectionGuard guard(GetSection());
    CXSafePointerTarget* target = other.GetTarget();
    Unlink();
    Link(target);
}

void CXSafePointerBase::Link(CXSafePointerTarget* target) {
    m_target.store(target, std::memory_order_relaxed);
    if (target == nullptr) {
        return;
    }
    if (target->m_head == nullptr) {
        m_previous = this;
        m_next = this;
        target->m_head = this;
    } else {
        m_next = target->m_head;
        m_previous = m_next->m_previous;
        m_previous->m_next = this;
        m_next->m_previous = this;
    }
}

void CXSafePointerBase::Unlink() {
    CXSafePointerTarget* target = m_target.load(std::memory_order_relaxed);
    if (target == nullptr) {
        return;
    }
    if (m_next == this) {
        target->m_head = nullptr;
    } else {
        m_previous->m_next = m_next;
        m_next->m_previous = m_previous;
        if (target->m_head == this) {
            target->m_head = m_next;
        }
    }
    m_previous = nullptr;
    m_next = nullptr;
    // Last, and released: whoever sees null may destroy the pointer without taking the section.
    m_target.store(nullptr, std::memory_order_release);
}

#include "runtime/CXMessageTarget.h"

#include "runtime/CXMessage.h"

#include <algorithm>

CXMessageTarget* CXMessageTarget::GetNextTarget() {
    return nullptr;
}

CXString CXMessageTarget::GetDebugName() const {
    return CXString();
}

CXResult CXMessageTarget::ProcessMessage(const CXMessage& message) {
    CXMessageTarget* next = GetNextTarget();
    return next != nullptr ? next->ProcessMessage(message) : kCXResultNotSupported;
}

CXString CXMessageTarget::ToString() const {
    return CXString::Format("CXMessageTarget{%s{%p}='%s'}", GetTypeName(),
                            static_cast<const void*>(this), GetDebugName().GetData());
}

void CXMessageTarget::ListenerAdded() {}

void CXMessageTarget::ListenerRemoved() {}

const char* CXMessageTarget::GetTypeName() const {
    return "CXMessageTarget";
}

CXString CXMessageTarget::ToString(const CXMessageTarget* target) {
    return target != nullptr ? target->ToString() : CXString("CXMessageTarget<NULL>");
}

bool CXMessageTarget::IsListener(const CXMessageTarget* listener) const {
    return std::any_of(m_listeners.begin(), m_listeners.end(),
                       [listener](const auto& entry) { return entry.Get() == listener; });
}

void CXMessageTarget::AddListener(CXMessageTarget* listener) {
    std::erase_if(m_listeners, [](const auto& entry) { return !entry.IsSet(); });
    if (listener == nullptr || IsListener(listener)) {
        return;
    }
    m_listeners.emplace_back(listener);
    ListenerAdded();
}

void CXMessageTarget::RemoveListener(CXMessageTarget* listener) {
    if (std::erase_if(m_listeners,
                      [listener](const auto& entry) { return entry.Get() == listener; }) > 0) {
        ListenerRemoved();
    }
}

void CXMessageTarget::Broadcast(const CXMessage& message) {
    const std::vector<CXSafePointer<CXMessageTarget>> listeners = m_listeners;
    const CXSafePointer<CXMessageTarget> self(this);
    for (const CXSafePointer<CXMessageTarget>& listener : listeners) {
        if (!self.IsSet()) {
            return;
        }
        if (listener.IsSet() && IsListener(listener.Get())) {
            listener->ProcessMessage(message);
        }
    }
}

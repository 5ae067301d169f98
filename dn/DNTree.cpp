#include "dn/DNTree.h"

#include "dn/DNMemoryValue.h"
#include "dn/DNMessages.h"

#include <vector>

DNTree::DNTree() : DNTree(DNValueRef(new DNMemoryValue)) {}

DNTree::DNTree(const DNValueRef& root) : m_root(root) {
    Watch(m_root, true);
}

DNTree::~DNTree() {
    Watch(m_root, false);
}

void DNTree::SetRoot(const DNValueRef& root) {
    Watch(m_root, false);
    m_root = root;
    Watch(m_root, true);
}

void DNTree::Watch(const DNValueRef& top, bool on) {
    std::vector<DNValueRef> pending{top};
    while (!pending.empty()) {
        const DNValueRef value = pending.back();
        pending.pop_back();
        if (value == DNValueRef()) {
            continue; // the shared empty value never changes
        }
        if (on) {
            value->AddListener(this);
        } else {
            value->RemoveListener(this);
        }
        for (size_t i = 0; i < value->GetChildCount(); ++i) {
            pending.push_back(value->ChildAt(i));
        }
    }
}

CXResult DNTree::ProcessMessage(const CXMessage& message) {
    // The name tells the class.
    if (message.GetName() == kDNValueAddChild) {
        const auto& added = static_cast<const DNValueAddChildMessage&>(message);
        Watch(added.GetValue()->ChildAt(added.GetIndex()), true);
    } else if (message.GetName() == kDNValueRemoveChild) {
        Watch(static_cast<const DNValueRemoveChildMessage&>(message).GetRemoved(), false);
    } else if (message.GetName() == kDNIteratorValueChanged) {
        const auto& changed = static_cast<const DNIteratorValueChangedMessage&>(message);
        Watch(changed.GetPrevious(), false);
        Watch(changed.GetValue()->ChildAt(changed.GetIndex()), true);
    } else if (message.GetName() != kDNValueChanged && message.GetName() != kDNIteratorKeyChanged &&
               message.GetName() != kDNValueReleaseValue) {
        return CXMessageTarget::ProcessMessage(message);
    }
    Broadcast(message);
    return kCXResultOK;
}

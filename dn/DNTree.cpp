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
    if (message.name == kDNValueAddChild) {
        const auto& added = static_cast<const DNValueAddChildMessage&>(message);
        Watch(added.value->ChildAt(added.index), true);
    } else if (message.name == kDNValueRemoveChild) {
        Watch(static_cast<const DNValueRemoveChildMessage&>(message).removed, false);
    } else if (message.name == kDNIteratorValueChanged) {
        const auto& changed = static_cast<const DNIteratorValueChangedMessage&>(message);
        Watch(changed.previous, false);
        Watch(changed.value->ChildAt(changed.index), true);
    } else if (message.name != kDNValueChanged && message.name != kDNIteratorKeyChanged &&
               message.name != kDNValueReleaseValue) {
        return CXMessageTarget::ProcessMessage(message);
    }
    Broadcast(message);
    return kCXResultOK;
}

// A document: a tree whose changes can be watched in one place.
#pragma once

#include "dn/DNValue.h"
#include "runtime/CXMessageTarget.h"

/// Holds a root and listens to every value below it; each change message is forwarded to the
/// document's own listeners with its original sender. Used on one thread.
class DNTree : public CXMessageTarget {
public:
    /// An empty folder as root.
    DNTree();
    explicit DNTree(const DNValueRef& root);
    ~DNTree() override;
    DNTree(const DNTree&) = delete;
    DNTree& operator=(const DNTree&) = delete;

    const DNValueRef& GetRoot() const { return m_root; }
    /// Replaces the whole content. No message is sent.
    void SetRoot(const DNValueRef& root);

    const char* GetTypeName() const override { return "DNTree"; }
    CXResult ProcessMessage(const CXMessage& message) override;

private:
    /// Starts or stops listening to a value and everything below it.
    void Watch(const DNValueRef& top, bool on);

    DNValueRef m_root;
};

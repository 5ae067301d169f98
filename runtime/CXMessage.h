// A named notification.
#pragma once

#include "core/CXString.h"

class CXMessageTarget;

/// A name and a sender; subclasses add a payload and nothing else. Names are compared by value:
/// classes keep theirs as global CXString objects, receivers may compare with a literal.
class CXMessage {
public:
    explicit CXMessage(const CXString& name, CXMessageTarget* source = nullptr)
        : m_name(name), m_source(source) {}
    virtual ~CXMessage() = default;

    const CXString& GetName() const { return m_name; }
    /// The sender, not owned; it may be gone by the time a posted message arrives.
    CXMessageTarget* GetSource() const { return m_source; }
    bool Is(const char* name) const { return m_name == name; }

protected:
    CXMessage(const CXMessage&) = default;
    CXMessage& operator=(const CXMessage&) = default;

private:
    CXString m_name;
    CXMessageTarget* m_source;
};

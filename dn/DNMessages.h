// The messages that values and iterators send to their listeners.
#pragma once

#include "dn/DNValue.h"
#include "runtime/CXMessage.h"

#include <cstddef>

/// Message names.
extern const CXString kDNValueChanged;         ///< "DNValue::valueChanged"
extern const CXString kDNValueAddChild;        ///< "DNValue::addChild"
extern const CXString kDNValueRemoveChild;     ///< "DNValue::removeChild"
extern const CXString kDNValueReleaseValue;    ///< "DNValue::releaseValue"
extern const CXString kDNIteratorKeyChanged;   ///< "DNIterator::keyChanged"
extern const CXString kDNIteratorValueChanged; ///< "DNIterator::valueChanged"

/// A message that carries a value and keeps it alive.
class CXMessageDNValueParam : public CXMessage {
public:
    CXMessageDNValueParam(const CXString& messageName, CXMessageTarget* sender,
                          const DNValueRef& param)
        : CXMessage(messageName, sender), m_value(param) {}

    /// For the tree's own messages the value that sent them.
    const DNValueRef& GetValue() const { return m_value; }

private:
    DNValueRef m_value;
};

/// A value's data changed.
class DNValueChangeMessage : public CXMessageDNValueParam {
public:
    explicit DNValueChangeMessage(DNValue* sender)
        : CXMessageDNValueParam(kDNValueChanged, sender, sender) {}
};

/// An entry was added to a folder.
class DNValueAddChildMessage : public CXMessageDNValueParam {
public:
    DNValueAddChildMessage(DNValue* sender, size_t entry)
        : CXMessageDNValueParam(kDNValueAddChild, sender, sender), m_index(entry) {}

    size_t GetIndex() const { return m_index; }

private:
    size_t m_index;
};

/// An entry was removed from a folder.
class DNValueRemoveChildMessage : public CXMessageDNValueParam {
public:
    DNValueRemoveChildMessage(DNValue* sender, size_t entry, const DNValueRef& gone)
        : CXMessageDNValueParam(kDNValueRemoveChild, sender, sender), m_index(entry),
          m_removed(gone) {}

    /// Where the entry stood.
    size_t GetIndex() const { return m_index; }
    /// The value that it held.
    const DNValueRef& GetRemoved() const { return m_removed; }

private:
    size_t m_index;
    DNValueRef m_removed;
};

/// A key was replaced through an iterator.
class DNIteratorKeyChangedMessage : public CXMessageDNValueParam {
public:
    DNIteratorKeyChangedMessage(DNValue* sender, size_t entry)
        : CXMessageDNValueParam(kDNIteratorKeyChanged, sender, sender), m_index(entry) {}

    size_t GetIndex() const { return m_index; }

private:
    size_t m_index;
};

/// An entry's value was replaced.
class DNIteratorValueChangedMessage : public CXMessageDNValueParam {
public:
    DNIteratorValueChangedMessage(DNValue* sender, size_t entry, const DNValueRef& before)
        : CXMessageDNValueParam(kDNIteratorValueChanged, sender, sender), m_index(entry),
          m_previous(before) {}

    size_t GetIndex() const { return m_index; }
    /// The value that stood there before.
    const DNValueRef& GetPrevious() const { return m_previous; }

private:
    size_t m_index;
    DNValueRef m_previous;
};

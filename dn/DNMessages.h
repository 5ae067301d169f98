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
        : CXMessage(messageName, sender), value(param) {}

    DNValueRef value; ///< for the tree's own messages the value that sent them
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
        : CXMessageDNValueParam(kDNValueAddChild, sender, sender), index(entry) {}

    size_t index;
};

/// An entry was removed from a folder.
class DNValueRemoveChildMessage : public CXMessageDNValueParam {
public:
    DNValueRemoveChildMessage(DNValue* sender, size_t entry, const DNValueRef& gone)
        : CXMessageDNValueParam(kDNValueRemoveChild, sender, sender), index(entry), removed(gone) {}

    size_t index;       ///< where the entry stood
    DNValueRef removed; ///< its value
};

/// A key was replaced through an iterator.
class DNIteratorKeyChangedMessage : public CXMessageDNValueParam {
public:
    DNIteratorKeyChangedMessage(DNValue* sender, size_t entry)
        : CXMessageDNValueParam(kDNIteratorKeyChanged, sender, sender), index(entry) {}

    size_t index;
};

/// An entry's value was replaced.
class DNIteratorValueChangedMessage : public CXMessageDNValueParam {
public:
    DNIteratorValueChangedMessage(DNValue* sender, size_t entry, const DNValueRef& before)
        : CXMessageDNValueParam(kDNIteratorValueChanged, sender, sender), index(entry),
          previous(before) {}

    size_t index;
    DNValueRef previous; ///< the value that stood there
};

// Record of what a long operation did: here the object that keeps nothing.
#pragma once

#include "core/CXString.h"
#include "runtime/CXMessageTarget.h"
#include "runtime/CXReference.h"
#include "runtime/DynamicReferenceCount.h"

#include <cstddef>

/// The null object of the log that operations can write to: everything succeeds, nothing is held
/// and no message is sent. A log that keeps its lines would derive from it and send the messages
/// named here to its listeners.
class CXProgressLog : public DynamicReferenceCount, public CXMessageTarget {
public:
    static const CXString kLogAdded;
    static const CXString kLogsRemoved;
    static const CXString kBecameImmutable;
    static const CXString kChildLogModified;

    const char* GetTypeName() const override { return "CXProgressLog"; }

    virtual void AddLog(const CXString& text);
    virtual void AddChildLog(const CXString& name, CXProgressLog* child);
    virtual void RemoveLogs();
    virtual void MakeImmutable();
    virtual size_t CountLogs() const;

    /// The one instance that stands where nobody set another; never null.
    static CXReference<CXProgressLog> GetDefault();
};

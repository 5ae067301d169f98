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
    /// Message names.
    static const CXString kLogAdded;
    static const CXString kLogsRemoved;
    static const CXString kBecameImmutable;
    static const CXString kChildLogModified;

    const char* GetTypeName() const override { return "CXProgressLog"; }

    /// Appends a line.
    virtual void AddLog(const CXString& text);
    /// Appends the log of a part of the work, which isn't owned.
    virtual void AddChildLog(const CXString& name, CXProgressLog* child);
    /// Removes all lines and child logs.
    virtual void RemoveLogs();
    /// Takes no more lines from then on.
    virtual void MakeImmutable();
    /// Number of lines and child logs.
    virtual size_t CountLogs() const;

    /// The one instance that stands where nobody set another; never null.
    static CXReference<CXProgressLog> GetDefault();
};

// A small object that is stepped again and again on one thread.
#pragma once

#include "core/CXString.h"

#include <atomic>
#include <vector>

class CXTaskHost;

/// Work cut into steps. `Proc` does a little and returns; the host that the task is attached to
/// calls it again on its next pass. There is no state, no cancel flag and no notice of an end: a
/// task that has done its work removes itself from within `Proc`. The owner of a task is whoever
/// made it; deleting it detaches it.
///
/// A class whose `Proc` uses its own members calls `Detach` first in its destructor: then no pass
/// on another thread is inside `Proc` while the members die.
class CXTask {
public:
    /// `name` is for diagnostics only.
    explicit CXTask(const CXString& name) : m_name(name) {}
    CXTask(const CXTask&) = delete;
    CXTask& operator=(const CXTask&) = delete;
    /// Detaches from the parent and from the host. The children stay attached and keep a parent
    /// that is no more, so whoever deletes a parent takes its children out first or outlives none
    /// of them.
    virtual ~CXTask();

    /// One step. Must not raise and must not block.
    virtual void Proc() = 0;

    /// Host to which the task is attached, or null.
    CXTaskHost* GetHost() const { return m_host.load(std::memory_order_relaxed); }
    CXTask* GetParent() const { return m_parent; }
    const std::vector<CXTask*>& GetChildren() const { return m_children; }
    const CXString& GetTaskName() const { return m_name; }

    /// Appends a child without attaching it to a host; children go with their parent when that is
    /// added or removed. The child must have no parent.
    void AddChild(CXTask* child);
    /// Takes a child out of the list and detaches it from this task's host.
    void RemoveChild(CXTask* child);

protected:
    /// The destructor's work: leaves the parent and the host, alone.
    void Detach();

private:
    void RemoveChild(CXTask* child, bool withItsChildren);

    friend class CXTaskHost;
    std::atomic<CXTaskHost*> m_host{nullptr};
    CXTask* m_parent = nullptr;
    bool m_unused = false;
    std::vector<CXTask*> m_children;
    CXString m_name;
};

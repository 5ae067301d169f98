#include "runtime/CXTask.h"

#include "runtime/CXTaskHost.h"

#include <algorithm>

CXTask::~CXTask() {
    Detach();
}

void CXTask::AddChild(CXTask* child) {
    m_children.push_back(child);
    child->m_parent = this;
}

void CXTask::RemoveChild(CXTask* child) {
    RemoveChild(child, true);
}

void CXTask::RemoveChild(CXTask* child, bool withItsChildren) {
    CXTaskHost* host = GetHost();
    if (host != nullptr) {
        host->m_runLock.Lock();
    }
    const auto found = std::find(m_children.begin(), m_children.end(), child);
    if (found != m_children.end()) {
        m_children.erase(found);
    }
    child->m_parent = nullptr;
    if (host != nullptr) {
        if (withItsChildren) {
            host->RemoveTask(child);
        } else {
            host->RemoveAlone(child);
        }
        host->m_runLock.Unlock();
    }
}

void CXTask::Detach() {
    if (m_parent != nullptr) {
        m_parent->RemoveChild(this, false);
    }
    CXTaskHost* host = GetHost();
    if (host != nullptr) {
        host->RemoveAlone(this);
    }
}

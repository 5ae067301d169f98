// A task made of a function.
#pragma once

#include "runtime/CXTask.h"

#include <functional>
#include <utility>

/// Calls its function at each step. An empty function is the caller's error: the step then raises
/// the standard bad-function-call failure.
class CXTaskLambda : public CXTask {
public:
    CXTaskLambda(const CXString& name, std::function<void()> function)
        : CXTask(name), m_function(std::move(function)) {}
    ~CXTaskLambda() override { Detach(); }
    void Proc() override { m_function(); }

private:
    std::function<void()> m_function;
};

// Helpers of the runtime tests: waiting on conditions, threads that take orders.
#pragma once

#include "core/CXTime.h"
#include "runtime/CXEvent.h"
#include "runtime/CXRuntime.h"
#include "runtime/CXTaskHost.h"
#include "runtime/CXThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

/// Polls until `condition` holds; false after a time that only a hang takes.
inline bool WaitUntil(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        CXSleep(1);
    }
    return true;
}

/// Time for something that must not happen to happen.
inline void LetOthersRun() {
    CXSleep(20);
}

/// Runs one function.
class FunctionThread : public CXThread {
public:
    explicit FunctionThread(std::function<void(FunctionThread&)> function,
                            const char* name = "FunctionThread")
        : CXThread(name), m_function(std::move(function)) {}
    ~FunctionThread() override { CXThread::Stop(); }
    void Proc() override { m_function(*this); }
    void Join() {
        EXPECT_TRUE(WaitUntil([this] { return !IsRunning(); }));
        CXThread::Stop();
    }

private:
    std::function<void(FunctionThread&)> m_function;
};

/// A thread that carries out one order after the other.
class Actor : public CXThread {
public:
    Actor() : CXThread("Actor") { Start(); }
    ~Actor() override { CXThread::Stop(); }
    void Do(std::function<void()> order) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_order = std::move(order);
        m_busy = true;
    }
    bool IsBusy() const { return m_busy; }
    void Proc() override {
        while (!IsStopRequested()) {
            std::function<void()> order;
            {
                const std::lock_guard<std::mutex> guard(m_lock);
                order = std::exchange(m_order, nullptr);
            }
            if (order) {
                order();
                m_busy = false;
            }
            CXSleep(1);
        }
    }

private:
    std::mutex m_lock;
    std::function<void()> m_order;
    std::atomic<bool> m_busy{false};
};

/// A text that several threads append words to.
class Journal {
public:
    void Add(const std::string& word) {
        const std::lock_guard<std::mutex> guard(m_lock);
        m_text += (m_text.empty() ? "" : " ") + word;
    }
    std::string Take() {
        const std::lock_guard<std::mutex> guard(m_lock);
        return std::exchange(m_text, std::string());
    }
    std::string Get() {
        const std::lock_guard<std::mutex> guard(m_lock);
        return m_text;
    }

private:
    std::mutex m_lock;
    std::string m_text;
};

/// Brings the runtime up and down around each test.
class RuntimeTest : public testing::Test {
protected:
    static void RunMainTasks() { CXTaskHost::GetCurrent()->RunTasks(); }
    static bool RunMainTasksUntil(const std::function<bool()>& condition) {
        return WaitUntil([&] {
            RunMainTasks();
            return condition();
        });
    }

private:
    CXRuntimeScope m_scope;
};

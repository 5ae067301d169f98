// Windows without a screen for tests: a running toolkit, and a user whose acts are carried out.
#pragma once

#include "runtime/CXMessageParams.h"
#include "runtime/CXMessagePostTask.h"
#include "runtime/CXRuntime.h"
#include "ui/CXMainLoop.h"
#include "ui/CXUIWindow.h"
#include "ui/HeadlessBackend.h"
#include "ui/UIService.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

inline void PrintTo(const CXString& text, std::ostream* out) {
    *out << '"' << text.View() << '"';
}

/// "name" or "name=payload" of a message.
inline std::string DescribeMessage(const CXMessage& message) {
    std::string text(message.GetName().View());
    if (const auto* number = dynamic_cast<const CXMessageIntParam*>(&message)) {
        text += "=" + std::to_string(number->GetValue());
    } else if (const auto* strings = dynamic_cast<const CXMessageStringParam*>(&message)) {
        for (const CXString& entry : strings->GetStrings()) {
            text += "=" + std::string(entry.View());
        }
    }
    return text;
}

class UIFixture : public testing::Test {
protected:
    UIFixture()
        : m_service(MakeBackend(), m_quit), m_loop(m_service),
          m_user(static_cast<HeadlessBackend&>(m_service.GetBackend())) {}

    /// Lets happen what the user did, and what follows from it: posted messages, layout.
    void Settle() {
        for (int quiet = 0; quiet < 3 && m_running; ++quiet) {
            while (m_running && !m_user.IsIdle()) {
                m_running = m_loop.RunOne(0);
                quiet = 0;
            }
            m_running = m_running && m_loop.RunOne(0);
        }
    }
    /// Steps the loop until something holds; false after a time that only a hang takes.
    bool Until(const std::function<bool()>& condition) {
        for (int step = 0; step < 3000 && !condition(); ++step) {
            m_running = m_running && m_loop.RunOne(10);
        }
        return condition();
    }
    /// Settles and says whether the user could do it.
    testing::AssertionResult Did(bool possible) {
        Settle();
        const CXString refusal = m_user.GetRefusal();
        return possible && refusal.IsEmpty() ? testing::AssertionSuccess()
                                             : testing::AssertionFailure() << refusal.View();
    }
    template <typename T, typename... Args> T* Open(Args&&... args) {
        auto window = std::make_unique<T>(std::forward<Args>(args)...);
        T* opened = window.get();
        m_service.Open(std::move(window));
        Settle();
        return opened;
    }
    std::string Dump() { return std::string(m_user.Dump().View()); }
    bool Shows(const std::string& text) { return Dump().find(text) != std::string::npos; }

private:
    static std::unique_ptr<UIBackend> MakeBackend() { return std::make_unique<HeadlessBackend>(); }

    CXRuntimeScope m_runtime;

protected:
    std::atomic<bool> m_quit{false};
    UIService m_service;
    CXMainLoop m_loop;
    HeadlessBackend& m_user;
    bool m_running = true; // the loop has not ended
};

/// Keeps what reaches it, and swallows it.
class RecordingWindow : public CXUIWindow {
public:
    explicit RecordingWindow(const CXString& title = "Test", UISize size = {400, 300})
        : CXUIWindow(title) {
        SetTitle(title);
        SetContentSize(size);
    }
    CXResult ProcessMessage(const CXMessage& message) override {
        if (message.GetName() == kClose || message.GetName() == kForceClose) {
            return CXUIWindow::ProcessMessage(message);
        }
        const UIElement* source = dynamic_cast<UIElement*>(message.GetSource());
        messages.push_back(
            DescribeMessage(message) +
            (source != nullptr ? " from " + std::string(source->GetName().View()) : std::string()));
        return kCXResultOK;
    }
    std::vector<std::string> Take() { return std::exchange(messages, {}); }
    std::vector<std::string> messages;
};

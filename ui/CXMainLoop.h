// What the main thread does while windows are open.
#pragma once

#include "ui/UIBackend.h"

#include <functional>

class CXMessageTarget;
class UIService;

/// Takes messages until the program is to end, routes keys, and steps the tasks of the main thread
/// after each message and at least every 10 ms. Main thread.
class CXMainLoop : public UILoopClient {
public:
    /// Longest wait for a message.
    static constexpr int32_t kTickMs = 10;

    explicit CXMainLoop(UIService& service) : m_service(service) {}

    /// Sends "open-application" to the application object, if there is one, and runs until the
    /// quit message, or until a message comes while a quit is requested (it is dropped). Then
    /// closes all windows that are left by "ForceClose".
    void Run(CXMessageTarget* application);
    /// One message; false: the loop is to end. For tests.
    bool RunOne(int32_t maxWaitMs = kTickMs);
    /// Closes every window by force, and forgets the front window.
    void CloseAll();

    /// Sees every message before the windows do; true consumes it. Empty: none.
    using PreTranslate = std::function<bool(const UIMessage& message)>;
    void SetPreTranslate(PreTranslate hook) { m_preTranslate = std::move(hook); }

    bool BeforeMessage() override;
    bool Route(const UIMessage& message) override;
    void AfterMessage() override;

private:
    UIService& m_service;
    PreTranslate m_preTranslate;
    bool m_pressed = false; // the message in hand was consumed by the press of a button
    bool m_isStepping = false;
};

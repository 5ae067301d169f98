// The end of every message's way: the application object.
#pragma once

#include "runtime/CXMessageTarget.h"

/// Base of a program's application object. Knows what any program does with its windows:
/// "CXMenuManager::QuitApplication" (posts a close to all windows; quits if there is none),
/// `close-front-window`, `bring-window-to-front`, `bring-all-windows-to-front`, and
/// `update-command-status` for these. What it is to open comes as "open-application". Registers
/// itself with the service. Main thread.
class CXUIApplication : public CXMessageTarget {
public:
    CXUIApplication();
    ~CXUIApplication() override;
    CXUIApplication(const CXUIApplication&) = delete;
    CXUIApplication& operator=(const CXUIApplication&) = delete;

    const char* GetTypeName() const override { return "CXUIApplication"; }
    CXResult ProcessMessage(const CXMessage& message) override;
};

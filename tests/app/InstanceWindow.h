// Stands in for the program's window towards other instances.
#pragma once

#include "app/VelPatchHandOver.h"

#include <memory>

/// Can be found by other instances while it lives, and passes their lines to the receiver.
class InstanceWindow {
public:
    explicit InstanceWindow(VelPatchHandOverReceiver& receiver);
    ~InstanceWindow();
    InstanceWindow(const InstanceWindow&) = delete;
    InstanceWindow& operator=(const InstanceWindow&) = delete;

    /// A pass of the main loop.
    void Pump();

private:
    struct Native;
    std::unique_ptr<Native> m_native;
};

#include "tests/app/InstanceWindow.h"

#include "app/VelPatchInstance.h"

struct InstanceWindow::Native {
    VelPatchInstanceListener listener;
};

InstanceWindow::InstanceWindow(VelPatchHandOverReceiver& receiver)
    : m_native(new Native{VelPatchInstanceListener(receiver)}) {}

InstanceWindow::~InstanceWindow() = default;

void InstanceWindow::Pump() {
    m_native->listener.Poll();
}

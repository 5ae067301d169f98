#include "tests/app/InstanceWindow.h"

#include "core/win32_api.h"

namespace {

LRESULT CALLBACK HandleMessage(HWND window, UINT message, WPARAM word, LPARAM parameter) {
    if (message == WM_COPYDATA) {
        const auto* copied = reinterpret_cast<const COPYDATASTRUCT*>(parameter);
        auto* receiver =
            reinterpret_cast<VelPatchHandOverReceiver*>(GetWindowLongPtrW(window, GWLP_USERDATA));
        return receiver->Receive(copied->dwData, copied->lpData, copied->cbData);
    }
    return DefWindowProcW(window, message, word, parameter);
}

} // namespace

struct InstanceWindow::Native {
    HWND window;
};

InstanceWindow::InstanceWindow(VelPatchHandOverReceiver& receiver) {
    WNDCLASSW kind = {};
    kind.lpfnWndProc = HandleMessage;
    kind.hInstance = GetModuleHandleW(nullptr);
    kind.lpszClassName = L"VelPatchTestInstance";
    RegisterClassW(&kind);
    const HWND window = CreateWindowExW(0, kind.lpszClassName, L"", WS_OVERLAPPEDWINDOW, 0, 0, 100,
                                        100, nullptr, nullptr, kind.hInstance, nullptr);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(&receiver));
    m_native.reset(new Native{window});
}

InstanceWindow::~InstanceWindow() {
    DestroyWindow(m_native->window);
}

void InstanceWindow::Pump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
}

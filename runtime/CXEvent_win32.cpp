#include "core/win32_api.h"
#include "runtime/CXEvent.h"

struct CXEvent::Platform {
    HANDLE handle;
};

CXEvent::CXEvent()
    : m_platform(std::make_unique<Platform>(CreateEventW(nullptr, TRUE, FALSE, nullptr))) {}

CXEvent::~CXEvent() {
    DetachRefs();
    CloseHandle(m_platform->handle);
}

bool CXEvent::Test() {
    return Wait(0);
}

void CXEvent::Set() {
    SetEvent(m_platform->handle);
}

void CXEvent::Reset() {
    ResetEvent(m_platform->handle);
}

bool CXEvent::Wait(uint32_t milliseconds) {
    static_assert(kForever == INFINITE);
    return WaitForSingleObject(m_platform->handle, milliseconds) == WAIT_OBJECT_0;
}

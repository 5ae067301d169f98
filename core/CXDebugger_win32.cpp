#include "core/CXDebugger.h"

#include "core/win32_api.h"

void CXDebugger::Write(const char* text) {
    ::OutputDebugStringA(text);
}

bool CXDebugger::IsPresent() {
    return ::IsDebuggerPresent() != FALSE;
}

void CXDebugger::Break() {
    ::DebugBreak();
}

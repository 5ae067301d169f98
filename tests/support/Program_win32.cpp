#include "tests/support/Program.h"

#include "core/CXPlatformText.h"
#include "core/CXStringUTF16.h"
#include "core/win32_api.h"

int RunProgram(const CXString& program, const std::vector<CXString>& arguments) {
    std::vector<CXString> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const CXStringUTF16 text = ToUTF16(MakeWindowsCommandLine(words));
    const auto* units = reinterpret_cast<const wchar_t*>(text.GetUnits());
    std::vector<wchar_t> line(units, units + text.CountUnits() + 1);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
        return -1;
    }
    constexpr DWORD kLimit = 60000;
    DWORD exitCode = static_cast<DWORD>(-1);
    if (WaitForSingleObject(process.hProcess, kLimit) == WAIT_OBJECT_0) {
        GetExitCodeProcess(process.hProcess, &exitCode);
    } else {
        TerminateProcess(process.hProcess, 1);
    }
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return static_cast<int>(exitCode);
}

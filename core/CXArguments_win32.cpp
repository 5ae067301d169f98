#include "core/CXArguments.h"

#include "core/CXStringUTF16.h"
#include "core/win32_api.h"

#include <shellapi.h>

std::vector<std::string> CXGetArguments(int argc, const char* const* argv) {
    int count = 0;
    wchar_t** wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
    if (wide == nullptr) {
        return std::vector<std::string>(argv, argv + argc);
    }
    std::vector<std::string> arguments;
    for (int i = 0; i < count; i++) {
        const CXString argument = FromUTF16(reinterpret_cast<const char16_t*>(wide[i]));
        arguments.emplace_back(argument.GetData(), argument.GetLength());
    }
    ::LocalFree(wide);
    return arguments;
}

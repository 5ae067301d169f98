#include "app/VelPatchEntry.h"
#include "app/VelPatchWizard.h"
#include "core/CXArguments.h"
#include "core/CXStringUTF16.h"

#include "core/win32_api.h"

int WINAPI wWinMain(HINSTANCE, HINSTANCE, wchar_t* line, int) {
    const CXString rawLine = FromUTF16(reinterpret_cast<const char16_t*>(line));
    VelPatchArguments arguments;
    arguments.words = CXGetArguments(0, nullptr);
    arguments.rawLine.assign(rawLine.GetData(), rawLine.GetLength());
    return RunVelPatch(arguments, {RunVelPatchWizard});
}

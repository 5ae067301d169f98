// Eyes for windows of other programs under Wine. For each line that it reads it lists what is shown
// of their windows and sheets, one control on a line, and ends the list with a line of one dot:
//   class, "enabled" or "-", "focus" or "-", "checked" or "-", text    (separated by tabs)
// Controls that a sheet over their window keeps the user from are not enabled. It also keeps
// Wine's services running, and ends with its input.

#include <stdio.h>
#include <string>
#include <windows.h>

namespace {

constexpr UINT kPatienceMs = 2000; // a program that is busy says nothing for so long

std::string ReadText(HWND window) {
    wchar_t wide[4096] = {};
    DWORD_PTR length = 0;
    SendMessageTimeoutW(window, WM_GETTEXT, 4096, (LPARAM)wide, SMTO_ABORTIFHUNG, kPatienceMs,
                        &length);
    char text[3 * 4096] = {};
    WideCharToMultiByte(CP_UTF8, 0, wide, -1, text, sizeof(text), NULL, NULL);
    for (char* at = text; *at != 0; ++at) {
        *at = *at >= 0 && *at < ' ' ? ' ' : *at;
    }
    return text;
}

std::string ReadClass(HWND window) {
    char name[256] = {};
    GetClassNameA(window, name, sizeof(name));
    return name;
}

void Print(HWND window, HWND focus) {
    DWORD_PTR checked = 0;
    if (ReadClass(window) == "Button") {
        SendMessageTimeoutW(window, BM_GETCHECK, 0, 0, SMTO_ABORTIFHUNG, kPatienceMs, &checked);
    }
    const bool enabled = IsWindowEnabled(window) && IsWindowEnabled(GetAncestor(window, GA_ROOT));
    printf("%s\t%s\t%s\t%s\t%s\n", ReadClass(window).c_str(), enabled ? "enabled" : "-",
           window == focus ? "focus" : "-", checked == BST_CHECKED ? "checked" : "-",
           ReadText(window).c_str());
    if (ReadClass(window) == "ListBox") {
        wchar_t wide[1024] = {};
        for (int i = 0; i < (int)SendMessageW(window, LB_GETCOUNT, 0, 0); ++i) {
            SendMessageW(window, LB_GETTEXT, i, (LPARAM)wide);
            printf("item\t-\t-\t-\t%ls\n", wide);
        }
    }
}

BOOL CALLBACK PrintChild(HWND window, LPARAM focus) {
    if (IsWindowVisible(window)) {
        Print(window, (HWND)focus);
    }
    return TRUE;
}

BOOL CALLBACK PrintTop(HWND window, LPARAM) {
    const std::string name = ReadClass(window);
    if (!IsWindowVisible(window) || (name != "VelPatchWindow" && name != "#32770")) {
        return TRUE;
    }
    GUITHREADINFO state = {};
    state.cbSize = sizeof(state);
    GetGUIThreadInfo(GetWindowThreadProcessId(window, NULL), &state);
    Print(window, state.hwndFocus);
    EnumChildWindows(window, PrintChild, (LPARAM)state.hwndFocus);
    return TRUE;
}

} // namespace

int main() {
    GetDesktopWindow(); // starts it
    char line[64];
    while (fgets(line, sizeof(line), stdin) != NULL) {
        EnumWindows(PrintTop, 0);
        puts(".");
        fflush(stdout);
    }
    return 0;
}

#include "core/CXFileSystem.h"

#include "ui/UIBackendWin32_win32.h"

#include <shobjidl.h>

namespace {

/// A COM interface that releases itself.
template <typename T> class Owned {
public:
    Owned() = default;
    ~Owned() {
        if (m_object != nullptr) {
            m_object->Release();
        }
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    T* operator->() const { return m_object; }
    T* Get() const { return m_object; }
    T** Receive() { return &m_object; }

private:
    T* m_object = nullptr;
};

} // namespace

bool UIRunWin32PickDialog(HWND owner, const UIPickRequest& request, CXString& path) {
    Owned<IFileOpenDialog> dialog;
    if (FAILED(CoCreateInstance(CLSID_FileOpenDialog, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(dialog.Receive())))) {
        return false;
    }
    DWORD options = 0;
    dialog->GetOptions(&options);
    options |= FOS_FORCEFILESYSTEM | FOS_NOCHANGEDIR | FOS_PATHMUSTEXIST;
    dialog->SetOptions(options |
                       static_cast<DWORD>(request.folder ? FOS_PICKFOLDERS : FOS_FILEMUSTEXIST));
    if (!request.prompt.IsEmpty()) {
        dialog->SetTitle(UIWide(request.prompt).c_str());
    }
    const std::wstring name = UIWide(request.fileName);
    const COMDLG_FILTERSPEC filter{name.c_str(), name.c_str()};
    if (!request.folder && !name.empty()) {
        dialog->SetFileTypes(1, &filter);
    }
    if (!request.startFolder.IsEmpty()) {
        std::wstring start = UIWide(request.startFolder);
        for (wchar_t& letter : start) {
            letter = letter == L'/' ? L'\\' : letter;
        }
        Owned<IShellItem> folder;
        if (SUCCEEDED(SHCreateItemFromParsingName(start.c_str(), nullptr,
                                                  IID_PPV_ARGS(folder.Receive())))) {
            dialog->SetFolder(folder.Get());
        }
    }
    if (FAILED(dialog->Show(owner))) {
        return false; // cancelled, or the owner has gone
    }
    Owned<IShellItem> chosen;
    PWSTR text = nullptr;
    if (FAILED(dialog->GetResult(chosen.Receive())) ||
        FAILED(chosen->GetDisplayName(SIGDN_FILESYSPATH, &text))) {
        return false;
    }
    path = CXFileSystem::FromForeignPath(UINarrow(text).View());
    CoTaskMemFree(text);
    return true;
}

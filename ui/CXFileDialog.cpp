#include "ui/CXFileDialog.h"

#include "runtime/CXSafePointer.h"
#include "ui/CXUIWindow.h"
#include "ui/UIService.h"

#include <utility>

void CXFileDialog::Pick(UIElement& owner, const UIPickRequest& request,
                        std::function<void(CXResult result, const CXString& path)> done) {
    CXUIWindow* window = owner.GetWindow();
    UIService::Get()->GetBackend().PickPath(
        window != nullptr ? window->GetPeer() : nullptr, request,
        [asker = CXSafePointer<UIElement>(&owner), finish = std::move(done)](bool chosen,
                                                                             const CXString& path) {
            if (asker) {
                finish(chosen ? kCXResultOK : kCXResultCancelled, path);
            }
        });
}

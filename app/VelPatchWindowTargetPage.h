// The page on which the target folder is fixed.
#pragma once

#include "app/VelPatchWindowPage.h"
#include "core/CXResult.h"

/// An installer's folder can be typed or picked; a patcher's is found by the product's own file. A
/// folder that can't be used is told in a message, and the target stays as it was.
class VelPatchWindowTargetPage : public VelPatchWindowPage {
public:
    explicit VelPatchWindowTargetPage(VelPatchWindow& window)
        : VelPatchWindowPage(window, "target-page") {}

    void Activate() override;
    CXResult ProcessMessage(const CXMessage& message) override;

    /// Pure: the folder below which the anchor file is `path`; letter case doesn't count. Empty if
    /// `path` doesn't end in the anchor file, or nothing stands before it.
    static CXString FolderOfAnchor(const CXString& path, const CXString& anchorFile);

protected:
    CXResult Press(const CXString& control) override;

private:
    CXResult PressNext();
    void PressChange();
    CXResult TakeTypedTarget();
    CXResult TakeFile(const CXString& path);
    CXResult TakeFolder(const CXString& folder);
    CXResult Refuse(const CXString& text);
    void ShowTarget();
};

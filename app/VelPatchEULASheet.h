// The licence, to be agreed to.
#pragma once

#include "ui/UIRichTextSheet.h"

/// Shows the licence file of the user's language. Agreeing posts `eula-agree` to the page;
/// declining only closes the sheet.
class VelPatchEULASheet : public UIRichTextSheet {
public:
    static const CXString kAgree;

    explicit VelPatchEULASheet(UIElement* page);
    /// Reads the file; what can't be read is shown empty.
    void Activate() override;
};

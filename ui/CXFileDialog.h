// Asks the user for a file or folder.
#pragma once

#include "core/CXResult.h"
#include "ui/UITypes.h"

#include <functional>

class UIElement;

/// The system's own dialog, over the window of the element that asks. It blocks nothing.
namespace CXFileDialog {

/// `done` gets kCXResultOK and an absolute program path, or kCXResultCancelled. It is called by
/// the main loop later, and not at all when `owner` is gone by then.
void Pick(UIElement& owner, const UIPickRequest& request,
          std::function<void(CXResult result, const CXString& path)> done);

} // namespace CXFileDialog

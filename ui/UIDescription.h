// Elements made from a description: a data tree, usually written as TextConfig.
#pragma once

#include "dn/DNValue.h"

class UICustomControl;

/// What a page is made of reads better as a description than as code:
///
///     constraints { 0 "heading.left = parent.left + padding" ... }
///     children
///     {
///         heading { type "label" text "$velpatch_welcome_next" }
///         next { type "button" role "default" text "Next" }
///     }
///
/// (Values are quoted because a bare one runs to the end of its line.) A child's key is its
/// element's name. Keys of any child: "type" (the `kType` of its class),
/// "text" (one that begins with "$" is looked up in the localised texts), "accessible-name" (the
/// same), "hidden", "disabled", and those of UIAlignmentHints. Of a button: "role" (default,
/// cancel). Of a check box: "checked". Of an edit: "masked", "read-only". Of a label: "label-for",
/// the name of the sibling that it names. Of a panel: "padding" (one number), "constraints" and
/// the other keys of UIAlignmentMethod, and "children".
namespace UIDescription {

/// Gives a panel its method, padding, hints and children. Of a child whose type isn't known nothing
/// is made, and that is logged. Main thread.
void Load(UICustomControl& panel, const DNValueRef& description);
/// The same from text.
void LoadText(UICustomControl& panel, absl::string_view text);

} // namespace UIDescription

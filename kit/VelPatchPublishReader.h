// Reads a service file into the model that is published.
#pragma once

#include "kit/VelPatchPublishModel.h"
#include "kit/VelPatchPublishText.h"

/// Reads the whole of `text`, with relative paths taken from `folder`. Everything that the text
/// alone tells is judged here: keys, ids, references between them, addresses; the files that it
/// names are not looked at. Problems go to `text`, and `service` is of use only without any.
void ReadPublishService(VelPatchPublishText& text, const CXString& folder,
                        VelPatchPublishService& service);

// What a failure of the system means, in words.
#pragma once

#include "core/CXResult.h"

/// Why an operation on a file has failed, to stand behind "can't be read: " and the like. Static
/// storage.
const char* ResultText(CXResult result);

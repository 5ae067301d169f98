// Deletion that is patient with files in use.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <cstdint>
#include <functional>

/// Deletes a file, a link or an empty folder. While the result is kCXResultInUse it tries again,
/// up to ten times, with a pause after each try (one second unless changed), logging each. Never
/// recursive. `log` receives the lines.
CXResult DeleteWithAutoRetry(const CXString& path, const std::function<void(const CXString&)>& log);

/// Changes the pause between the tries, in milliseconds; returns the earlier one. Tests only.
uint32_t SetDeleteRetryPause(uint32_t milliseconds);

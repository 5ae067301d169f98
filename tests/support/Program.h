// Runs other programs from tests.
#pragma once

#include "core/CXString.h"

#include <vector>

/// Runs a program to its end and gives its exit code; -1 if it couldn't be started or hasn't ended
/// after a minute (then it is ended).
int RunProgram(const CXString& program, const std::vector<CXString>& arguments);

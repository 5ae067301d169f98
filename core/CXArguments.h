// The words of the process's command line.
#pragma once

#include <string>
#include <vector>

/// The arguments that `main` got, in UTF-8, the program's own name first. Windows gives `main`
/// another code page, so there the system is asked instead, and both arguments may be 0.
std::vector<std::string> CXGetArguments(int argc, const char* const* argv);

// The studio's console program: its command line and its commands.
#pragma once

#include <string>
#include <vector>

// Exit codes of the program.
inline constexpr int kKitDone = 0;
inline constexpr int kKitFailed = 1;    ///< a patch was rolled back, or couldn't be made
inline constexpr int kKitUsage = 2;     ///< the command line, or a file that it names, is no use
inline constexpr int kKitStopped = 130; ///< Ctrl-C

/// Runs the program with these arguments (UTF-8, the program's name first) and answers its exit
/// code. Data goes to standard output, words to standard error. The runtime must be up. Main
/// thread.
int RunKit(const std::vector<std::string>& arguments);

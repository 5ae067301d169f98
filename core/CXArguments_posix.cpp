#include "core/CXArguments.h"

std::vector<std::string> CXGetArguments(int argc, const char* const* argv) {
    return std::vector<std::string>(argv, argv + argc);
}

#include "core/CXArguments.h"
#include "kit/VelPatchKit.h"
#include "runtime/CXRuntime.h"

int main(int argc, char** argv) {
    const CXRuntimeScope runtime;
    return RunKit(CXGetArguments(argc, argv));
}

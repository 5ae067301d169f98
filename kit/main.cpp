#include "kit/KitPlatform.h"
#include "kit/VelPatchKit.h"
#include "runtime/CXRuntime.h"

int main(int argc, char** argv) {
    const CXRuntimeScope runtime;
    return RunKit(KitPlatform::GetArguments(argc, argv));
}

#include "ui/UINativeBackend.h"

std::unique_ptr<UIBackend> UIMakeNativeBackend() {
    return nullptr;
}

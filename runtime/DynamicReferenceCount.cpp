#include "runtime/DynamicReferenceCount.h"

void DynamicReferenceCount::ReleaseObject() {
    delete this;
}

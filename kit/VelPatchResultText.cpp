#include "kit/VelPatchResultText.h"

const char* ResultText(CXResult result) {
    switch (result) {
    case kCXResultEndOfStream:
        return "it ends too soon";
    case kCXResultNoResources:
        return "no space, memory or handles left, or the disk fails";
    case kCXResultNotFound:
        return "no such file or folder";
    case kCXResultInUse:
        return "another program holds it";
    case kCXResultAccessDenied:
        return "access denied, or read-only";
    case kCXResultBadData:
        return "its contents have the wrong form";
    case kCXResultAlreadyExists:
        return "a file of that name is in the way";
    case kCXResultUnusable:
        return "its version isn't known here";
    default:
        return "the system refuses";
    }
}

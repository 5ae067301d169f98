#include "core/CXResult.h"

#include <cerrno>

CXResult CXResultFromWin32Error(uint32_t error) {
    switch (error) {
    case 0:
        return kCXResultOK;
    case 38: // handle eof
        return kCXResultEndOfStream;
    case 109: // broken pipe
        return kCXResultBrokenPipe;
    case 6:   // invalid handle
    case 87:  // invalid parameter
    case 230: // bad pipe
    case 487: // invalid address
        return kCXResultInvalidArgument;
    case 4:   // too many open files
    case 8:   // not enough memory
    case 14:  // out of memory
    case 29:  // write fault
    case 30:  // read fault
    case 39:  // handle disk full
    case 112: // disk full
        return kCXResultNoResources;
    case 2:   // file not found
    case 3:   // path not found
    case 15:  // invalid drive
    case 53:  // bad network path
    case 55:  // device does not exist
    case 123: // invalid name
    case 154: // label too long
    case 161: // bad path name
    case 267: // not a directory
        return kCXResultNotFound;
    case 5:  // access denied
    case 19: // write protected
    case 32: // sharing violation
        return kCXResultAccessDenied;
    case 52:  // duplicate name
    case 80:  // file exists
    case 183: // already exists
        return kCXResultAlreadyExists;
    case 258: // wait timeout
        return kCXResultTimedOut;
    default:
        return kCXResultFailed;
    }
}

CXResult CXResultFromErrno(int error) {
    switch (error) {
    case 0:
        return kCXResultOK;
    case ENOENT:
    case ENOTDIR:
    case ENODEV:
    case ENXIO:
        return kCXResultNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case EBUSY:
    case ETXTBSY:
        return kCXResultAccessDenied;
    case EEXIST:
        return kCXResultAlreadyExists;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case ENOSPC:
    case EIO:
#ifdef EDQUOT // a number that only some C libraries know
    case EDQUOT:
#endif
        return kCXResultNoResources;
    case EINVAL:
    case EBADF:
        return kCXResultInvalidArgument;
    case EPIPE:
        return kCXResultBrokenPipe;
    case ETIMEDOUT:
        return kCXResultTimedOut;
    default:
        return kCXResultFailed;
    }
}

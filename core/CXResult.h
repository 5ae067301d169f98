// The one result type of the toolkit, and its conversion from platform errors.
#pragma once

#include <cstdint>

/// 32-bit result: 0 is success, every failure is a small negative number. Code compares results
/// by equality with the constants below, never by sign, and prints them with "%d".
using CXResult = int32_t;

inline constexpr CXResult kCXResultOK = 0;
inline constexpr CXResult kCXResultNotOpen = -1;         ///< operation on a stream that is not open
inline constexpr CXResult kCXResultNotSupported = -2;    ///< not implemented by this stream type
inline constexpr CXResult kCXResultEndOfStream = -3;     ///< read past the end
inline constexpr CXResult kCXResultBrokenPipe = -4;      ///< the other end went away
inline constexpr CXResult kCXResultInvalidArgument = -5; ///< null data, negative position, ...
inline constexpr CXResult kCXResultNoResources = -6; ///< memory, handles, disk space, device fault
inline constexpr CXResult kCXResultNotFound = -7;    ///< no such file, path or device
inline constexpr CXResult kCXResultReserved8 = -8;   ///< never produced
inline constexpr CXResult kCXResultInUse = -9;       ///< held exclusively, or busy on deletion
inline constexpr CXResult kCXResultAccessDenied =
    -10; ///< no right, or a write to something read-only
inline constexpr CXResult kCXResultAlreadyOpen = -11;   ///< open of a stream that is open
inline constexpr CXResult kCXResultBadData = -12;       ///< data of the wrong form
inline constexpr CXResult kCXResultAlreadyExists = -13; ///< the name is taken
inline constexpr CXResult kCXResultTimedOut = -14;      ///< a time limit ran out
inline constexpr CXResult kCXResultUnusable = -15;      ///< a value or version that can't be used
inline constexpr CXResult kCXResultCancelled = -16;     ///< a progress callback answered false
inline constexpr CXResult kCXResultFailed = -17;        ///< any other failure
inline constexpr CXResult kCXResultReserved18 = -18;    ///< never produced

/// Result for a Windows error number (`GetLastError`). Pure; 0 gives success, an unnamed number
/// gives kCXResultFailed.
CXResult CXResultFromWin32Error(uint32_t error);

/// Result for a POSIX errno value. Pure; 0 gives success, an unnamed number kCXResultFailed.
CXResult CXResultFromErrno(int error);

/// For places where a failure is certain: turns a success (the last error was 0) into
/// kCXResultFailed and passes everything else.
inline CXResult CXResultCertainFailure(CXResult result) {
    return result == kCXResultOK ? kCXResultFailed : result;
}

// The Windows headers, for *_win32.cpp files alone. Include it last: it undefines the macros that
// would rename our methods.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#undef CopyFile
#undef CreateDirectory
#undef CreateEvent
#undef CreateLink
#undef DeleteFile
#undef GetCommandLine
#undef GetCurrentDirectory
#undef GetCurrentTime
#undef GetMessage
#undef GetObject
#undef GetTempPath
#undef MoveFile
#undef PostMessage
#undef RemoveDirectory
#undef SendMessage
#undef SetCurrentDirectory
#undef X509_NAME
#undef Yield
#undef far
#undef near

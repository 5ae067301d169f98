// What the kit needs of the system and no other layer does: the console and its signals.
#pragma once

#include "core/CXString.h"

#include <cstdint>

namespace KitPlatform {

/// Whether the standard stream is a console that a person looks at.
bool IsInputTerminal();
bool IsErrorTerminal();
/// Columns of the console behind standard error; 80 when unknown.
int GetTerminalColumns();

/// From now on Ctrl-C and a polite request to end only raise a flag; they don't end the process. A
/// second one while the flag is up does.
void CatchInterrupts();
bool IsInterrupted();

/// A plain file: neither folder nor link, device, pipe or socket.
bool IsRegularFile(const CXString& path);

/// Large blocks of memory go back to the system as soon as they are freed. Otherwise what the work
/// on one large file leaves behind would be too scattered for the next one to fit into, and the
/// process would grow with their number. To be called before other threads run.
void ReturnFreedMemory();

/// Largest resident memory of this process so far, in bytes.
uint64_t GetPeakMemory();

} // namespace KitPlatform

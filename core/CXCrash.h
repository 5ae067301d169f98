// The crash filter: what is left behind when the process dies of a fault.
#pragma once

/// Installs the handler once. On a fault it writes "crashdump.dmp" into the temporary folder (a
/// minidump on Windows, a text back-trace elsewhere) and lets the process end.
void CXInstallCrashHandler();

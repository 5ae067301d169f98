// "velpatch-kit fetch": one transfer with the client that players run.
#pragma once

#include "core/CXString.h"

class VelPatchConsole;

struct VelPatchFetchOptions {
    CXString address;    ///< "http" or "https"
    CXString path;       ///< of the file to write, absolute
    bool resume = false; ///< ask for what the file lacks, as a player's retry does
    CXString proxy;      ///< "host:port"; empty: none
};

/// Fetches, showing progress and rate; result, status, bytes and rate come out as data, and a
/// failure tells the exchange without credentials. What a broken transfer brought stays in the
/// file, the body of a refusal doesn't. Answers the kit's exit code.
int FetchFile(const VelPatchFetchOptions& options, VelPatchConsole& console);

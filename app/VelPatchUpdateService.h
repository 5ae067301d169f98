// Asks the patch stream service: for the wizard's pages on a worker, for a run without a window at
// once.
#pragma once

#include "app/VelPatchServiceReplies.h"
#include "app/config/VelPatchCommandLine.h"
#include "app/config/VelPatchConfiguration.h"
#include "runtime/CXSafePointer.h"

#include <functional>

/// The requests carry the password in clear, no reply is kept and no request is repeated. Nothing
/// outlives a request but its completion.
namespace VelPatchUpdateService {

/// The identity of an installed build: the MD5 digest of the anchor file as 32 lower-case digits.
struct InstalledBuild {
    CXString anchorPath;               ///< the file that was asked for
    CXResult result = kCXResultFailed; ///< of opening it
    CXString identity;                 ///< empty if it couldn't be opened or read
};
InstalledBuild ReadInstalledBuild(const CXString& target, const CXString& anchorFile);

using StreamCheckDone = std::function<void(const VelPatchStreamCheckReply& reply)>;
using StreamFileDone = std::function<void(const VelPatchStreamFileCompletion& completion)>;

/// Posts a stream check with the two typed texts to any worker. Main thread. `done` is called on
/// the main thread, in the worker host's pass, unless `page` has died by then.
void PostStreamCheck(CXSafePointerTarget& page, const VelPatchConfiguration& configuration,
                     const CXString& username, const CXString& password, StreamCheckDone done);

/// Posts the check of the target for a patch to any worker, on the same terms. Offline the service
/// isn't asked; an installation reads no anchor file.
void PostStreamFileCheck(CXSafePointerTarget& page, const VelPatchConfiguration& configuration,
                         const VelPatchSettings& settings, StreamFileDone done);

/// Asks whether there is a patch for the target and waits for the answer: the exit code of a run
/// without a window. Reads the anchor file even of an installation, and saves nothing.
int CheckForPatch(const VelPatchCheckRequest& request);

} // namespace VelPatchUpdateService

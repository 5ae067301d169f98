// The two requests to the patch stream service, and how they are sent.
#pragma once

#include "core/CXResult.h"
#include "core/CXString.h"

#include <optional>

class CXGenericEvent;

/// Asks which patch streams an account may use.
struct VelPatchStreamCheckQuery {
    CXString serviceBase; ///< ends in "/"
    CXString username;
    CXString password;
    CXString locale; ///< the service's code, "US"
    CXString bundleId;
    CXString installationId;
    std::optional<bool> isInstallation; ///< unset: not told, as in a run without a window
};

/// Asks for the patch that a stream holds for a build of the target.
struct VelPatchStreamFileQuery {
    CXString serviceBase; ///< ends in "/"
    CXString username;
    CXString password;
    CXString streamId;
    CXString build; ///< checksum of the anchor file, or an installation's identifier
    CXString locale;
};

/// The address that a query is sent to; its values, the password too, are percent-coded and
/// otherwise in clear.
CXString AddressOfQuery(const VelPatchStreamCheckQuery& query);
CXString AddressOfQuery(const VelPatchStreamFileQuery& query);

/// What came back. Only success counts; the body of any other result is of no use.
struct VelPatchServiceReply {
    CXResult result = kCXResultFailed;
    CXString body;
};

/// Bytes; a reply is a handful of lines.
inline constexpr uint64_t kLongestServiceReply = 8 << 20;

/// Fetches the address once, on a connection of its own, and waits for the whole reply. Any thread.
/// While `cancelEvent` (may be null) is set the transfer ends. A body of more than
/// kLongestServiceReply bytes ends it as well; both give kCXResultCancelled or the result of the
/// connection that was closed.
VelPatchServiceReply FetchServiceReply(const CXString& address,
                                       CXGenericEvent* cancelEvent = nullptr);

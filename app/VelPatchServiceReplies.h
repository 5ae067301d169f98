// What the replies of the patch stream service mean to the wizard and to a run without a window.
#pragma once

#include "app/VelPatchServiceRequests.h"
#include "app/config/VelPatchSettings.h"
#include "core/CXString.h"

#include <map>
#include <optional>
#include <vector>

/// A text for the user: a key of the localised texts with its arguments, or a text as it stands.
struct VelPatchPageText {
    CXString text;
    std::vector<CXString> arguments;
    bool isKey = true;

    /// What is shown.
    CXString Get() const;
};

/// A message sheet.
struct VelPatchPageMessage {
    VelPatchPageText text;
    bool hasParent = true; ///< false: a message that belongs to no window
};

/// A stream check's reply with the two texts that it was made for.
struct VelPatchStreamCheckReply {
    CXString username;
    CXString password;
    VelPatchServiceReply reply;
};

/// What the account page does after a stream check: it shows the message and stays, or, without
/// one, applies the rest to the settings and posts "next-page".
struct VelPatchStreamCheckOutcome {
    std::optional<VelPatchPageMessage> message;
    CXString username;
    CXString password;
    std::map<CXString, CXString> streams; ///< id to display name; not empty
    CXString streamId;                    ///< one of the streams

    bool GoesOn() const { return !message; }
    /// Stores account, streams and choice; does nothing beside a message.
    void ApplyTo(VelPatchSettings& settings) const;
};

/// Pure. `rememberedStreamId` is the settings' choice: it stands as long as the service offers it;
/// otherwise the service's default is taken, or the smallest id.
VelPatchStreamCheckOutcome OutcomeOf(const VelPatchStreamCheckReply& reply,
                                     const CXString& rememberedStreamId);

/// How the check of a target for a patch ended.
struct VelPatchStreamFileCompletion {
    enum class Kind {
        InvalidTarget, ///< the anchor file can't be opened
        WrongBuild,    ///< an offline patch is for another build
        OfflineReady,  ///< nobody was asked: the patch lies beside the program
        Replied,       ///< the service was asked
    };

    Kind kind = Kind::Replied;
    CXString anchorPath;                 ///< of an invalid target
    CXResult anchorResult = kCXResultOK; ///< why it can't be opened
    VelPatchServiceReply reply;          ///< of the service
};

/// What the check page does after a completion, beside ending its busy look and enabling Back.
struct VelPatchStreamFileOutcome {
    std::optional<VelPatchPageText> heading; ///< unset: stays as it is
    std::optional<VelPatchPageMessage> message;
    bool enablesNext = false;
    bool hasAddresses = false; ///< whether ApplyTo changes anything
    CXString patchControlFile;
    CXString patchDataFile;

    void ApplyTo(VelPatchSettings& settings) const;
};

/// Pure. `offlineDescription` is the configuration's.
VelPatchStreamFileOutcome OutcomeOf(const VelPatchStreamFileCompletion& completion,
                                    const CXString& offlineDescription);

/// Exit codes of a run without a window.
inline constexpr int kCheckNoPatch = 0;
inline constexpr int kCheckPatchAvailable = 1;
inline constexpr int kCheckFailed = 2;
inline constexpr int kCheckAccountRefused = 3;

/// The service's advice to a run without a window, which looks at nothing else of the reply: a
/// stream, or, when there is none, the exit code.
struct VelPatchDefaultStream {
    CXString streamId;
    int exitCode = kCheckFailed; ///< counts when `streamId` is empty
};

/// Pure.
VelPatchDefaultStream DefaultStreamOf(const VelPatchServiceReply& streamCheckReply);
/// Pure; the exit code.
int CheckResultOf(const VelPatchServiceReply& streamFileReply);

#include "app/VelPatchServiceReplies.h"

#include "core/CXLocalisation.h"
#include "dn/DNMemoryValue.h"
#include "dn/TextConfig.h"

#include <utility>

namespace {

constexpr char kErrorNoPatch[] = "no-patches-available";
constexpr char kStreamKey[] = "stream";
constexpr char kNoConnection[] =
    "Failed to access patch server. Please check your internet connection or try again later.";

/// The words with which a stream check fails, what the user reads and what a run without a window
/// ends with. Any other word counts as a failure that only the service can explain.
struct StreamCheckError {
    const char* word;
    const char* messageKey;
    int exitCode;
};
constexpr StreamCheckError kStreamCheckErrors[] = {
    {"login_details_not_received", "$velpatch_account_missing", kCheckFailed},
    {"invalid-myrollstock-details", "$velpatch_account_incorrect", kCheckAccountRefused},
    {"no-patch-streams", "$velpatch_account_products", kCheckAccountRefused},
    {"no-products-owned", "$velpatch_account_products", kCheckAccountRefused},
};

const StreamCheckError* FindStreamCheckError(const CXString& word) {
    for (const StreamCheckError& error : kStreamCheckErrors) {
        if (word == error.word) {
            return &error;
        }
    }
    return nullptr;
}

/// A parsed reply. What isn't a document is an empty or partial one, and so not good.
struct ParsedReply {
    DNValueRef root{new DNMemoryValue};
    CXString error;
    bool isGood = false;

    explicit ParsedReply(const VelPatchServiceReply& reply) {
        TextConfig::ParseRepeating(reply.body.GetData(), reply.body.GetLength(), *root,
                                   {kStreamKey});
        error = GetText("error");
        isGood = root->Get("good")->GetInt() == 1;
    }
    CXString GetText(const char* key) const { return root->Get(key)->GetString(); }
};

VelPatchPageText KeyText(const char* key, std::vector<CXString> arguments = {}) {
    return {.text = CXString(key), .arguments = std::move(arguments), .isKey = true};
}

VelPatchPageText PlainText(const CXString& text) {
    return {.text = text, .arguments = {}, .isKey = false};
}

VelPatchPageMessage KeyMessage(const char* key, std::vector<CXString> arguments = {}) {
    return {.text = KeyText(key, std::move(arguments)), .hasParent = true};
}

/// The streams on offer; of an id that comes twice the later name counts.
std::map<CXString, CXString> ReadStreams(const DNValue& root) {
    std::map<CXString, CXString> streams;
    const DNData streamKey = DNData::String(kStreamKey);
    for (size_t i = 0; i < root.GetChildCount(); ++i) {
        if (root.KeyAt(i) != streamKey) {
            continue;
        }
        const CXString value = root.ChildAt(i)->GetString();
        const absl::string_view view = value.View();
        const size_t blank = view.find(' ');
        if (blank == absl::string_view::npos) {
            streams[CXString()] = CXString();
        } else {
            streams[CXString(view.substr(0, blank))] = CXString(view.substr(blank + 1));
        }
    }
    return streams;
}

/// Why a stream check's reply is of no use to the account page, if it isn't.
std::optional<VelPatchPageMessage> FindAccountMessage(const ParsedReply& reply) {
    if (const StreamCheckError* error = FindStreamCheckError(reply.error)) {
        return KeyMessage(error->messageKey);
    }
    if (!reply.error.IsEmpty()) {
        return KeyMessage("$velpatch_account_error", {reply.error});
    }
    if (!reply.isGood) {
        return KeyMessage("$velpatch_account_malformed");
    }
    return std::nullopt;
}

VelPatchStreamFileOutcome OutcomeOfReply(const VelPatchServiceReply& reply) {
    VelPatchStreamFileOutcome outcome;
    if (reply.result != kCXResultOK) {
        outcome.message = VelPatchPageMessage{.text = PlainText(kNoConnection), .hasParent = true};
        return outcome;
    }
    const ParsedReply parsed(reply);
    if (parsed.error == kErrorNoPatch) {
        outcome.heading = KeyText("$velpatch_check_no_patch");
    } else if (!parsed.error.IsEmpty()) {
        outcome.message = KeyMessage("$velpatch_check_error", {parsed.error});
    } else if (!parsed.isGood) {
        outcome.message = KeyMessage("$velpatch_check_malformed");
    } else {
        outcome.heading = PlainText(parsed.GetText("description"));
        outcome.enablesNext = true;
        outcome.hasAddresses = true;
        outcome.patchControlFile = parsed.GetText("patch-control-file");
        outcome.patchDataFile = parsed.GetText("patch-data-file");
    }
    return outcome;
}

} // namespace

CXString VelPatchPageText::Get() const {
    return isKey ? FormatLocalisedStringList(text, arguments) : text;
}

void VelPatchStreamCheckOutcome::ApplyTo(VelPatchSettings& settings) const {
    if (!GoesOn()) {
        return;
    }
    settings.username = username;
    settings.password = password;
    settings.streams = streams;
    settings.streamId = streamId;
    const auto chosen = streams.find(streamId);
    settings.streamName = chosen == streams.end() ? CXString() : chosen->second;
}

VelPatchStreamCheckOutcome OutcomeOf(const VelPatchStreamCheckReply& reply,
                                     const CXString& rememberedStreamId) {
    VelPatchStreamCheckOutcome outcome;
    if (reply.reply.result != kCXResultOK) {
        outcome.message = KeyMessage("$velpatch_account_failed");
        return outcome;
    }
    const ParsedReply parsed(reply.reply);
    outcome.message = FindAccountMessage(parsed);
    if (outcome.message) {
        return outcome;
    }
    outcome.streams = ReadStreams(*parsed.root);
    if (outcome.streams.empty()) {
        outcome.message = KeyMessage("$velpatch_account_uptodate");
        outcome.message->hasParent = false;
        return outcome;
    }
    outcome.username = reply.username;
    outcome.password = reply.password;
    outcome.streamId = parsed.GetText("default-stream");
    if (outcome.streamId.IsEmpty() || outcome.streams.count(outcome.streamId) == 0) {
        outcome.streamId = outcome.streams.begin()->first;
    }
    if (outcome.streams.count(rememberedStreamId) != 0) {
        outcome.streamId = rememberedStreamId;
    }
    return outcome;
}

void VelPatchStreamFileOutcome::ApplyTo(VelPatchSettings& settings) const {
    if (hasAddresses) {
        settings.patchControlFile = patchControlFile;
        settings.patchDataFile = patchDataFile;
    }
}

VelPatchStreamFileOutcome OutcomeOf(const VelPatchStreamFileCompletion& completion,
                                    const CXString& offlineDescription) {
    VelPatchStreamFileOutcome outcome;
    switch (completion.kind) {
    case VelPatchStreamFileCompletion::Kind::InvalidTarget:
        outcome.heading = KeyText("$velpatch_check_invalid_target_3");
        outcome.message =
            KeyMessage("$velpatch_check_invalid_target_1",
                       {completion.anchorPath, ToLocalisedArgument(completion.anchorResult)});
        break;
    case VelPatchStreamFileCompletion::Kind::WrongBuild:
        outcome.heading = KeyText("$velpatch_check_invalid_target_3");
        outcome.message = KeyMessage("$velpatch_check_invalid_target_2");
        break;
    case VelPatchStreamFileCompletion::Kind::OfflineReady:
        outcome.heading = PlainText(offlineDescription);
        outcome.enablesNext = true;
        break;
    case VelPatchStreamFileCompletion::Kind::Replied:
        return OutcomeOfReply(completion.reply);
    }
    return outcome;
}

VelPatchDefaultStream DefaultStreamOf(const VelPatchServiceReply& streamCheckReply) {
    VelPatchDefaultStream stream;
    if (streamCheckReply.result != kCXResultOK) {
        return stream;
    }
    const ParsedReply parsed(streamCheckReply);
    if (const StreamCheckError* error = FindStreamCheckError(parsed.error)) {
        stream.exitCode = error->exitCode;
    } else if (parsed.error.IsEmpty() && parsed.isGood) {
        stream.streamId = parsed.GetText("default-stream");
        stream.exitCode = kCheckAccountRefused;
    }
    return stream;
}

int CheckResultOf(const VelPatchServiceReply& streamFileReply) {
    if (streamFileReply.result != kCXResultOK) {
        return kCheckFailed;
    }
    const ParsedReply parsed(streamFileReply);
    if (parsed.error == kErrorNoPatch) {
        return kCheckNoPatch;
    }
    return parsed.error.IsEmpty() && parsed.isGood ? kCheckPatchAvailable : kCheckFailed;
}

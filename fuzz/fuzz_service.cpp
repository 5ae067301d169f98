// Replies of the patch stream service, to either request: every body has an outcome, and the wizard
// and a run without a window agree about it.
#include "app/VelPatchServiceReplies.h"
#include "fuzz/FuzzTools.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SilenceLog();
    const VelPatchServiceReply reply{
        kCXResultOK, CXString(absl::string_view(reinterpret_cast<const char*>(data), size))};

    const VelPatchStreamCheckOutcome check = OutcomeOf({"user", "password", reply}, "remembered");
    VelPatchSettings settings;
    check.ApplyTo(settings);
    Check(check.GoesOn() == !settings.streams.empty());
    Check(check.GoesOn() == (settings.username == "user"));
    if (check.GoesOn()) {
        const auto chosen = settings.streams.find(settings.streamId);
        Check(chosen != settings.streams.end() && chosen->second == settings.streamName);
        const bool isOffered = settings.streams.count("remembered") != 0;
        Check(isOffered == (settings.streamId == "remembered"));
    }
    const VelPatchDefaultStream stream = DefaultStreamOf(reply);
    Check(stream.streamId.IsEmpty() || check.GoesOn() || !check.message->hasParent);

    VelPatchStreamFileCompletion completion;
    completion.reply = reply;
    const VelPatchStreamFileOutcome file = OutcomeOf(completion, CXString());
    Check(file.enablesNext == (CheckResultOf(reply) == kCheckPatchAvailable));
    Check(file.enablesNext == file.hasAddresses);
    Check(file.heading.has_value() != file.message.has_value());
    return 0;
}

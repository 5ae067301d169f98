#include "app/VelPatchWindowStreamPage.h"

#include "app/VelPatchWindow.h"
#include "app/config/VelPatchProcessSettings.h"
#include "runtime/CXMessageParams.h"
#include "ui/UIControl.h"
#include "ui/UIDescription.h"
#include "ui/UIListSheet.h"

#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr const char* kChosen = "user-selected-patch-stream";

constexpr const char* kLayout = R"(
padding 13
constraints {{{
prompt.left = parent.left + padding
prompt.right = parent.right - padding
prompt.top = parent.top + padding
stream.left = parent.left + padding
stream.right = change.left - 8
stream.top >= prompt.bottom + 8
stream.vertical-center = change.vertical-center
change.right = parent.right - padding
change.width = change.content-width
change.top = prompt.bottom + 13
back.right = next.left - 8
back.bottom = next.bottom
next.right = parent.right - padding
next.bottom = parent.bottom - padding
}}}
children
{
    prompt { type "label" text "$velpatch_stream_prompt" }
    stream { type "label" }
    change { type "button" text "$velpatch_stream_change_stream" }
    back { type "button" text "$velpatch_stream_back" }
    next { type "button" role "default" }
}
)";

} // namespace

void VelPatchWindowStreamPage::Activate() {
    UIDescription::LoadText(*this, kLayout);
    Get("next").SetText(GetLocalisedString(GetProcessSettings().streamConfigurationOnly
                                               ? "$velpatch_stream_done"
                                               : "$velpatch_stream_next"));
    ShowStream();
}

void VelPatchWindowStreamPage::ShowStream() {
    Get("stream").SetText(
        FormatLocalisedString("$velpatch_stream_name", GetWizard().GetSettings().streamName));
}

CXResult VelPatchWindowStreamPage::ProcessMessage(const CXMessage& message) {
    if (message.Is(kChosen)) {
        TakeStream(static_cast<const CXMessageStringParam&>(message).GetStrings()[0]);
        return kCXResultOK;
    }
    return VelPatchWindowPage::ProcessMessage(message);
}

CXResult VelPatchWindowStreamPage::Press(const CXString& control) {
    if (control == "next") {
        return GoNext();
    }
    if (control == "back") {
        return GoBack();
    }
    if (control == "change") {
        OfferStreams();
        return kCXResultOK;
    }
    return kCXResultNotSupported;
}

void VelPatchWindowStreamPage::OfferStreams() {
    const VelPatchSettings& settings = GetWizard().GetSettings();
    std::vector<UIListSheet::Entry> entries;
    for (const auto& [id, name] : settings.streams) {
        entries.push_back({id, name});
    }
    UISheet::Show(std::make_unique<UIListSheet>(this, GetLocalisedString("$velpatch_stream_select"),
                                                std::move(entries), settings.streamId, kChosen));
}

void VelPatchWindowStreamPage::TakeStream(const CXString& id) {
    VelPatchSettings& settings = GetWizard().GetSettings();
    const auto found = settings.streams.find(id);
    if (found != settings.streams.end()) {
        settings.streamId = found->first;
        settings.streamName = found->second;
        ShowStream();
    }
}

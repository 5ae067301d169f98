#include "app/VelPatchEULASheet.h"

#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXStringEdit.h"
#include "stream/CXStreamTools.h"

const CXString VelPatchEULASheet::kAgree("eula-agree");

namespace {

/// A licence of more bytes is not read.
constexpr uint64_t kLongestLicence = 16 * 1024 * 1024;

} // namespace

VelPatchEULASheet::VelPatchEULASheet(UIElement* page)
    : UIRichTextSheet(
          "licence", page,
          {{GetLocalisedString("$velpatch_eula_agree"), kAgree, UIButtonRole::Default},
           {GetLocalisedString("$velpatch_eula_decline"), CXString(), UIButtonRole::Cancel}}) {}

void VelPatchEULASheet::Activate() {
    const CXString data = CXFileSystem::Join(CXFileSystem::GetApplicationFolder(), "data");
    CXStringEdit text;
    ReadWholeFile(CXFileSystem::Join(data, GetLocalisedString("$velpatch_eula_filename")), text,
                  kLongestLicence);
    SetRichText(UIRichText::Read(text.View()));
    UIRichTextSheet::Activate();
}

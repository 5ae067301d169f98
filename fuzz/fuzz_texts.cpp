// Expansions of localised texts and registry values, and the texts of paths and platforms: no
// input may crash, hang or break what callers rely on.
#include "core/CXFileSystem.h"
#include "core/CXLanguages.h"
#include "core/CXLocalisation.h"
#include "core/CXPlatformText.h"
#include "fuzz/FuzzTools.h"

#include <vector>

namespace {

/// Cuts the front off `rest`, up to a byte 1.
absl::string_view Cut(absl::string_view& rest) {
    const size_t end = rest.find('\x01');
    const absl::string_view front = rest.substr(0, end);
    rest.remove_prefix(end == absl::string_view::npos ? rest.size() : end + 1);
    return front;
}

/// Knows "$(a)" as the second part of the input and "$(b)" as the third; no others, and it does not
/// expand what it gives, so that an input can't make a cycle.
void ExpandText(absl::string_view input) {
    CXStringEdit edit(Cut(input));
    const absl::string_view first = Cut(input);
    const absl::string_view second = Cut(input);
    const CXLocalisedStringRecursionGuard guard = {nullptr, CXString("$(guarded)")};
    ExpandLocalisedText(
        edit,
        [&](const CXString& key, CXStringEdit& out, const CXLocalisedStringRecursionGuard* inner) {
            Check(inner == &guard && key != "$(guarded)");
            out.Assign(key == "$(a)" ? first : second);
            return key == "$(a)" || key == "$(b)";
        },
        &guard);
    if (edit.View().find("$(") == absl::string_view::npos) {
        const CXString before = edit.ToString();
        Check(LookupUIText(nullptr, before, edit, nullptr) && edit.ToString() == before);
    }
}

void ExpandValues(absl::string_view input) {
    const absl::string_view text = Cut(input);
    const std::map<CXString, CXString> variables = {{"A", CXString(Cut(input))},
                                                    {"B", CXString(Cut(input))}};
    const CXString result = ExpandVariables(text, variables);
    if (text.find("$(") == absl::string_view::npos) {
        Check(result == CXString(text));
    }
}

void Paths(absl::string_view input) {
    const CXString normal = CXFileSystem::NormalisePath(input);
    Check(CXFileSystem::NormalisePath(normal) == normal);
    Check(normal.IsEmpty() || CXFileSystem::GetParent(normal) != normal);
    Check(CXFileSystem::IsValidFileName(CXFileSystem::SanitiseFileName(input)));
    // Nothing climbs above the folder it is joined to when no segment is "..".
    if (normal.View().find("..") == absl::string_view::npos && !CXFileSystem::IsAbsolute(normal)) {
        const CXString joined = CXFileSystem::Join("/target", normal);
        Check(CXFileSystem::IsWithin("/target", CXFileSystem::NormalisePath(joined)));
    }
    CXFileSystem::GetExtendedPath(input);
    CXFileSystem::FromForeignPath(input);
    CXFileSystem::IsValidPath(input);
    CXFileSystem::GetStem(input);
    CXFileSystem::GetExtension(input);
    uint32_t mode = 0;
    Check(!CXFileSystem::ParsePosixPermissions(input, mode) || mode <= 07777);
}

void SystemTexts(absl::string_view input) {
    for (const CXString& mount : ParseMountInfo(input)) {
        Check(!mount.IsEmpty() && mount.GetData()[0] == '/');
    }
    const CXString folder = ParseDesktopFolder(input, "/home/u");
    Check(folder.IsEmpty() || folder.GetData()[0] == '/');
    // A name can't add a line of its own to the entry.
    const CXString entry = MakeDesktopEntry(input, input, input);
    int lines = 0;
    for (const char byte : entry.View()) {
        lines += byte == '\n' ? 1 : 0;
    }
    Check(lines == 7);
    ParseLanguageVariables(input, input, input, input);
    MakeWindowsCommandLine({CXString(input), CXString(input)});
    FromWindowsPath(input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0 || size > 4096) {
        return 0;
    }
    const absl::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    switch (data[0]) {
    case 'L':
        ExpandText(input);
        break;
    case 'V':
        ExpandValues(input);
        break;
    case 'P':
        Paths(input);
        break;
    case 'S':
        SystemTexts(input);
        break;
    default:
        break;
    }
    return 0;
}

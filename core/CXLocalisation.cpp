#include "core/CXLocalisation.h"

#include "core/CXLock.h"

#include <algorithm>

namespace {

/// Levels of references inside referenced texts; more than this can only be a cycle.
constexpr int kMaxLevels = 64;

struct TextTable {
    CXCriticalSection section;
    std::map<CXString, CXString> texts;
};

/// Never destroyed: task threads may still ask while the process ends.
TextTable& TheTable() {
    static TextTable* table = new TextTable;
    return *table;
}

/// One part of a reference: "value" or "name=value".
struct Part {
    CXStringEdit name;
    CXStringEdit value;
    bool named = false;
};

/// Reads the parts of a reference from behind its "$(". Returns the index behind the closing ")",
/// or npos when there is none.
size_t ReadParts(absl::string_view text, size_t at, std::vector<Part>& parts) {
    parts.clear();
    parts.emplace_back();
    size_t depth = 0;
    for (; at < text.size(); ++at) {
        const char byte = text[at];
        const bool firstClosed = parts.size() > 1;
        if (byte == '(' && firstClosed) {
            ++depth;
        } else if (byte == ')') {
            if (depth == 0) {
                return at + 1;
            }
            --depth;
        } else if (byte == ',' && depth == 0) {
            parts.emplace_back();
            continue;
        } else if (byte == '=' && depth == 0 && firstClosed && !parts.back().named) {
            Part& part = parts.back();
            part.name = part.value;
            part.value.Clear();
            part.named = true;
            continue;
        }
        parts.back().value.AppendByte(byte);
    }
    return absl::string_view::npos;
}

CXString ReferenceTo(const CXStringEdit& name) {
    CXStringEdit key(absl::string_view("$("));
    key.Append(name.View());
    key.AppendByte(')');
    return key.ToString();
}

bool IsGuarded(const CXString& key, const CXLocalisedStringRecursionGuard* guard) {
    for (; guard != nullptr; guard = guard->parent) {
        if (guard->text == key) {
            return true;
        }
    }
    return false;
}

/// What stands for a whole reference; false leaves it as written.
bool ResolveReference(const std::vector<Part>& parts, const CXLocalisedTextResolver& resolver,
                      const CXLocalisedStringRecursionGuard* guard, CXStringEdit& out) {
    if (parts[0].value.View() == "ESCAPE" && parts.size() == 2) {
        out = parts[1].value;
        return true;
    }
    const CXString key = ReferenceTo(parts[0].value);
    if (IsGuarded(key, guard) || !resolver(key, out, guard)) {
        return false;
    }
    for (size_t i = parts.size(); --i != 0;) {
        const Part& part = parts[i];
        if (part.named) {
            out.ReplaceAll(ReferenceTo(part.name), part.value);
        } else {
            out.ReplaceAll(CXString::Format("$%d", i - 1), part.value);
        }
    }
    return true;
}

} // namespace

void SetLocalisedString(const CXString& key, const CXString& text) {
    TextTable& table = TheTable();
    CXCriticalSectionGuard guard(table.section);
    table.texts[key] = text;
}

void ClearLocalisedStrings() {
    TextTable& table = TheTable();
    CXCriticalSectionGuard guard(table.section);
    table.texts.clear();
}

CXString GetLocalisedString(const CXString& key) {
    TextTable& table = TheTable();
    CXCriticalSectionGuard guard(table.section);
    const auto found = table.texts.find(key);
    return found != table.texts.end() ? found->second : key;
}

CXString FormatLocalisedStringList(const CXString& key, const std::vector<CXString>& arguments) {
    CXStringEdit edit(GetLocalisedString(key).View());
    // Downwards, so that "$1" doesn't eat the front of "$10".
    for (size_t i = arguments.size(); i != 0; --i) {
        edit.ReplaceAll(CXString::Format("$%d", i), arguments[i - 1]);
    }
    return edit.ToString();
}

void ExpandLocalisedText(CXStringEdit& edit, const CXLocalisedTextResolver& resolver,
                         const CXLocalisedStringRecursionGuard* guard) {
    const absl::string_view text = edit;
    size_t mark = text.find("$(");
    if (mark == absl::string_view::npos) {
        return;
    }
    CXStringEdit result;
    std::vector<Part> parts;
    size_t copied = 0;
    while (mark != absl::string_view::npos) {
        size_t behind = ReadParts(text, mark + 2, parts);
        CXStringEdit replacement;
        if (behind == absl::string_view::npos) {
            behind = mark + 2;
        } else if (ResolveReference(parts, resolver, guard, replacement)) {
            result.Append(text.substr(copied, mark - copied));
            result.Append(replacement.View());
            copied = behind;
        }
        mark = text.find("$(", behind);
    }
    result.Append(text.substr(copied));
    edit = std::move(result);
}

bool LookupUIText(CXStringSource* chain, const CXString& key, CXStringEdit& out,
                  const CXLocalisedStringRecursionGuard* guard) {
    bool known = false;
    CXStringSource* root = nullptr;
    for (CXStringSource* source = chain; source != nullptr && !known;
         source = source->GetParentSource()) {
        root = source;
        known = source->FindString(key, out);
    }
    if (!known && (root == nullptr || !root->FindFallbackString(key, out))) {
        out.Assign(key);
    }
    int levels = 0;
    for (const CXLocalisedStringRecursionGuard* up = guard; up != nullptr; up = up->parent) {
        ++levels;
    }
    if (levels < kMaxLevels) {
        const CXLocalisedStringRecursionGuard inner = {guard, out.ToString()};
        ExpandLocalisedText(
            out,
            [chain](const CXString& innerKey, CXStringEdit& innerOut,
                    const CXLocalisedStringRecursionGuard* innerGuard) {
                return LookupUIText(chain, innerKey, innerOut, innerGuard);
            },
            &inner);
    }
    return true;
}

// The texts of each language: there, used, with their arguments, and without circles.
#include "kit/VelPatchConfigCheck.h"

#include "app/config/VelPatchLanguage.h"
#include "app/config/VelPatchTextKeys.h"
#include "core/CXFileSystem.h"
#include "core/CXLocalisation.h"
#include "core/CXText.h"

#include <algorithm>
#include <map>
#include <set>

namespace {

constexpr absl::string_view kLicenceKey("$velpatch_eula_filename");
constexpr absl::string_view kHelpKey("$velpatch_help_url");

/// The numbers behind "$" in a text; one too large to count is the largest.
std::set<int64_t> ListArguments(absl::string_view text) {
    std::set<int64_t> numbers;
    for (size_t at = text.find('$'); at != absl::string_view::npos; at = text.find('$', at)) {
        at++;
        const size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
        if (end > at) {
            numbers.insert(ToInt64(text.substr(at, end - at), INT64_MAX));
        }
    }
    return numbers;
}

/// The "$(name)" of a text, as the program would look them up.
std::vector<CXString> ListReferences(const CXString& text) {
    std::vector<CXString> references;
    CXStringEdit edit(text.View());
    ExpandLocalisedText(
        edit,
        [&references](const CXString& key, CXStringEdit&, const CXLocalisedStringRecursionGuard*) {
            references.push_back(key);
            return false;
        },
        nullptr);
    return references;
}

/// The texts of a language by key, and what each refers to.
class ReferenceGraph {
public:
    explicit ReferenceGraph(const DNValue& language) {
        for (size_t i = 0; i < language.GetChildCount(); i++) {
            m_texts[language.KeyAt(i).GetString()].text = language.ChildAt(i)->GetString();
        }
        for (auto& [key, node] : m_texts) {
            for (const CXString& reference : ListReferences(node.text)) {
                const CXString target = FindTarget(reference);
                (target.IsEmpty() ? node.unknown : node.references)
                    .push_back(target.IsEmpty() ? reference : target);
                m_used.insert(target);
            }
        }
    }

    /// Names of references that lead nowhere, by the key of their text.
    template <typename Report> void ForEachUnknown(const Report& report) const {
        for (const auto& [key, node] : m_texts) {
            for (const CXString& unknown : node.unknown) {
                report(key, unknown);
            }
        }
    }

    bool IsUsed(const CXString& key) const { return m_used.count(key) != 0; }

    /// The keys that lead back to themselves, one of each circle.
    std::vector<CXString> FindCircles() {
        std::vector<CXString> circles;
        for (auto& [key, node] : m_texts) {
            Walk(key, circles);
        }
        return circles;
    }

private:
    enum class Mark : uint8_t { New, Open, Done };
    struct Node {
        CXString text;
        std::vector<CXString> references;
        std::vector<CXString> unknown;
        Mark mark = Mark::New;
    };
    struct Step {
        CXString key;
        size_t next = 0; ///< reference to follow
    };

    /// A text may stand under the whole reference, or under the name inside it.
    CXString FindTarget(const CXString& reference) const {
        if (m_texts.count(reference) != 0) {
            return reference;
        }
        const CXString name(reference.Mid(2, reference.GetLength() - 1));
        return m_texts.count(name) != 0 ? name : CXString();
    }

    /// Depth first, on a list of its own: a chain may be as long as the file.
    void Walk(const CXString& start, std::vector<CXString>& circles) {
        if (m_texts[start].mark != Mark::New) {
            return;
        }
        std::vector<Step> open = {{start}};
        m_texts[start].mark = Mark::Open;
        while (!open.empty()) {
            Node& node = m_texts[open.back().key];
            if (open.back().next == node.references.size()) {
                node.mark = Mark::Done;
                open.pop_back();
                continue;
            }
            const CXString key = node.references[open.back().next++];
            Node& target = m_texts[key];
            if (target.mark == Mark::Open) {
                circles.push_back(key);
            } else if (target.mark == Mark::New) {
                target.mark = Mark::Open;
                open.push_back({key});
            }
        }
    }

    std::map<CXString, Node> m_texts;
    std::set<CXString> m_used;
};

} // namespace

void VelPatchConfigCheck::CheckLanguages() {
    const DNValueRef languages = m_document.GetRoot()->Get("locales");
    if (languages->GetChildCount() == 0) {
        AddOfKey(true, "locales", "holds no language, so every text shows as its key");
        return;
    }
    for (size_t i = 0; i < languages->GetChildCount(); i++) {
        CheckLanguage(languages, languages->KeyAt(i).GetString(), languages->ChildAt(i));
    }
}

void VelPatchConfigCheck::CheckLanguage(const DNValueRef& languages, const CXString& name,
                                        const DNValueRef& language) {
    const CXString where = CXString::Format("locales/%s", name.GetData());
    const size_t line = m_document.GetLine(languages, name);
    if (!language->IsFolder()) {
        Add(true, line, where, "should be a block of texts in braces");
        return;
    }
    const CXString lookedUp = SelectLanguage({name}, {});
    if (lookedUp != name) {
        Add(true, line, where,
            CXString::Format("is looked up as \"%s\", so none of its texts would show",
                             lookedUp.GetData()));
    }
    std::set<CXString> present;
    for (size_t i = 0; i < language->GetChildCount(); i++) {
        present.insert(language->KeyAt(i).GetString());
    }
    for (const VelPatchTextKey& known : GetTextKeys()) {
        if (present.count(known.key) == 0) {
            Add(true, line, CXString::Format("%s/%s", where.GetData(), known.key), "is missing");
        }
    }
    for (size_t i = 0; i < language->GetChildCount(); i++) {
        const CXString key = language->KeyAt(i).GetString();
        const CXString path = CXString::Format("%s/%s", where.GetData(), key.GetData());
        if (language->ChildAt(i)->IsFolder()) {
            Add(true, m_document.GetLine(language, key), path, "should be a text, not a block");
        } else {
            CheckText(language, path, key, language->ChildAt(i)->GetString());
        }
    }
    CheckReferences(language, where);
}

void VelPatchConfigCheck::CheckText(const DNValueRef& language, const CXString& where,
                                    const CXString& key, const CXString& text) {
    const size_t line = m_document.GetLine(language, key);
    if (!IsUTF8(text)) {
        Add(true, line, where, "is not in UTF-8");
    }
    const size_t last = text.View().find_last_not_of(" \t");
    if (last != absl::string_view::npos &&
        (text.View()[last] == '\n' || text.View()[last] == '\r')) {
        Add(false, line, where, "ends with a line end; does it lack its closing quote?");
    }
    const VelPatchTextKey* known = FindTextKey(key);
    if (known == nullptr) {
        return; // whether something refers to it is seen with the references
    }
    CheckArguments(*known, text, line, where);
    if (key == kLicenceKey) {
        CheckLicence(text, line, where);
    } else if (text.IsEmpty() && key != kHelpKey) {
        Add(false, line, where, "is empty");
    }
}

void VelPatchConfigCheck::CheckArguments(const VelPatchTextKey& known, const CXString& text,
                                         size_t line, const CXString& where) {
    const std::set<int64_t> used = ListArguments(text);
    const int count = known.CountArguments();
    for (const int64_t number : used) {
        if (number < 1 || number > count) {
            Add(true, line, where,
                CXString::Format("uses $%d and has %d arguments", number, count));
        }
    }
    for (int number = 1; number <= count; number++) {
        if (used.count(number) == 0) {
            Add(false, line, where,
                CXString::Format("doesn't use $%d (%s)", number,
                                 CXString(known.GetArgument(number)).GetData()));
        }
    }
}

void VelPatchConfigCheck::CheckLicence(const CXString& file, size_t line, const CXString& where) {
    if (!CXFileSystem::IsValidFileName(file)) {
        Add(IsInstallation(), line, where, "can't be the name of a file");
    } else if (!CXFileSystem::Exists(InFolder(file))) {
        // Only an installation shows the licence.
        Add(IsInstallation(), line, where,
            CXString::Format("'%s' is missing", InFolder(file).GetData()));
    }
}

void VelPatchConfigCheck::CheckReferences(const DNValueRef& language, const CXString& where) {
    ReferenceGraph graph(*language);
    const auto add = [&](bool isError, const CXString& key, const CXString& text) {
        Add(isError, m_document.GetLine(language, key),
            CXString::Format("%s/%s", where.GetData(), key.GetData()), text);
    };
    graph.ForEachUnknown([&](const CXString& key, const CXString& reference) {
        add(false, key,
            CXString::Format("refers to %s, which is no text of this language",
                             reference.GetData()));
    });
    for (const CXString& key : graph.FindCircles()) {
        add(true, key, "refers to itself, perhaps by way of others");
    }
    for (size_t i = 0; i < language->GetChildCount(); i++) {
        const CXString key = language->KeyAt(i).GetString();
        if (FindTextKey(key) == nullptr && !graph.IsUsed(key)) {
            const bool isQuoteMissing = key.View().substr(0, 1) != "$";
            add(false, key,
                isQuoteMissing ? "is no text that the program looks up; keys that begin with \"$\" "
                                 "must stand in quotes"
                               : "is no text that the program looks up");
        }
    }
}

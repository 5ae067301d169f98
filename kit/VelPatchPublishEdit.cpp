#include "kit/VelPatchPublishEdit.h"

#include "core/CXStringEdit.h"
#include "kit/VelPatchConfigDocument.h"

#include <algorithm>

namespace {

constexpr const char* kStep = "    ";
constexpr size_t kNowhere = TextConfig::Trace::kNowhere;

/// One stretch of the text that another takes the place of.
struct Change {
    size_t begin;
    size_t end;
    CXString text;
};

class Editor {
public:
    Editor(absl::string_view text, const VelPatchNewBuild& build) : m_text(text), m_build(build) {
        const size_t end = text.find_first_of("\r\n");
        m_lineEnd = text.substr(end, 2) == "\r\n"                         ? "\r\n"
                    : end != absl::string_view::npos && text[end] == '\r' ? "\r"
                                                                          : "\n";
        m_document.Read(text);
    }

    bool Run(CXString& out, CXString& problem) {
        const DNValueRef streams = m_document.GetRoot()->Get("streams");
        const DNValueRef stream = streams->Get(m_build.streamId);
        if (!stream->IsFolder()) {
            problem = CXString::Format("there is no stream '%s'", m_build.streamId.GetData());
            return false;
        }
        const CXString indent =
            CXString::Format("%s%s", IndentOf(streams, m_build.streamId).GetData(), kStep);
        CXStringEdit builds;
        CXStringEdit installations;
        if (!EditBuilds(stream, indent, builds, problem)) {
            return false;
        }
        const DNValueRef known = stream->Get("installations");
        for (const auto& [id, folder] : m_build.installations) {
            PutEntry(known, id, indent, {}, &folder, installations);
        }
        Insert(stream, "builds", indent, builds);
        Insert(stream, "installations", indent, installations);

        std::stable_sort(m_changes.begin(), m_changes.end(),
                         [](const Change& a, const Change& b) { return a.begin < b.begin; });
        CXStringEdit edited;
        size_t at = 0;
        for (const Change& change : m_changes) {
            edited.Append(m_text.substr(at, change.begin - at));
            edited.Append(change.text);
            at = change.end;
        }
        edited.Append(m_text.substr(at));
        out = edited.ToString();
        return true;
    }

private:
    using Lines = std::vector<std::pair<const char*, CXString>>;

    bool EditBuilds(const DNValueRef& stream, const CXString& indent, CXStringEdit& added,
                    CXString& problem) {
        const DNValueRef builds = stream->Get("builds");
        if (m_document.GetLine(builds, m_build.name) != 0) {
            problem = CXString::Format("stream '%s' holds a build '%s' already",
                                       m_build.streamId.GetData(), m_build.name.GetData());
            return false;
        }
        for (const auto& [name, folder] : m_build.patches) {
            const DNValueRef old = builds->Get(name);
            if (!old->IsFolder()) {
                problem = CXString::Format("stream '%s' holds no build '%s'",
                                           m_build.streamId.GetData(), name.GetData());
                return false;
            }
            Lines identity;
            for (const char* key : {"anchor-checksum", "folder"}) {
                const CXString value = old->Get(key)->GetString();
                if (!value.IsEmpty()) {
                    identity.emplace_back(key, value);
                }
            }
            PutEntry(builds, name, indent, identity, &folder, added);
        }
        PutEntry(builds, m_build.name, indent, {{"anchor-checksum", m_build.anchorChecksum}},
                 nullptr, added);
        return true;
    }

    /// Writes an entry over the one that the folder has, or else into `added`. `patch` is the
    /// folder of a patch, or null.
    void PutEntry(const DNValueRef& folder, const CXString& name, const CXString& outer,
                  Lines lines, const CXString* patch, CXStringEdit& added) {
        if (patch != nullptr) {
            lines.emplace_back("control",
                               CXString::Format("%s/patch-control.txt", patch->GetData()));
            lines.emplace_back("data", CXString::Format("%s/patch-data.bin", patch->GetData()));
            lines.emplace_back("description", m_build.description);
        }
        const size_t key = m_document.GetOffset(folder, name);
        const size_t end = m_document.GetEndOffset(folder->Get(name));
        const bool isThere = key != kNowhere && end != kNowhere;
        const CXString indent =
            isThere ? IndentOf(folder, name) : CXString::Format("%s%s", outer.GetData(), kStep);
        CXStringEdit entry;
        AppendQuoted(entry, name);
        entry.AppendFormat("%s%s{%s", m_lineEnd, indent.GetData(), m_lineEnd);
        for (const auto& [word, value] : lines) {
            entry.AppendFormat("%s%s%s ", indent.GetData(), kStep, word);
            AppendQuoted(entry, value);
            entry.Append(m_lineEnd);
        }
        entry.AppendFormat("%s}", indent.GetData());
        if (isThere) {
            m_changes.push_back({key, end + 1, entry.ToString()});
        } else {
            added.AppendFormat("%s%s%s", indent.GetData(), entry.ToString().GetData(), m_lineEnd);
        }
    }

    /// Puts entries at the end of the stream's folder of this name, which is made if missing.
    void Insert(const DNValueRef& stream, const char* name, const CXString& indent,
                const CXStringEdit& entries) {
        if (entries.IsEmpty()) {
            return;
        }
        const size_t end = m_document.GetEndOffset(stream->Get(name));
        if (end != kNowhere) {
            InsertBefore(end, entries.View());
            return;
        }
        CXStringEdit folder;
        folder.AppendFormat("%s%s%s%s{%s%s%s}%s", indent.GetData(), name, m_lineEnd,
                            indent.GetData(), m_lineEnd, entries.ToString().GetData(),
                            indent.GetData(), m_lineEnd);
        InsertBefore(m_document.GetEndOffset(stream), folder.View());
    }

    /// Lines go before the line of a closing brace that stands alone, others before the brace.
    void InsertBefore(size_t brace, absl::string_view lines) {
        const size_t start = LineStart(brace);
        const bool isAlone =
            m_text.substr(start, brace - start).find_first_not_of(" \t") == absl::string_view::npos;
        const size_t at = isAlone ? start : brace;
        m_changes.push_back({at, at,
                             isAlone
                                 ? CXString(lines)
                                 : CXString::Format("%s%s", m_lineEnd, CXString(lines).GetData())});
    }

    size_t LineStart(size_t offset) const {
        const size_t end =
            offset == 0 ? absl::string_view::npos : m_text.find_last_of("\r\n", offset - 1);
        return end == absl::string_view::npos ? 0 : end + 1;
    }

    CXString IndentOf(const DNValueRef& folder, const CXString& name) const {
        const size_t key = m_document.GetOffset(folder, name);
        const absl::string_view before = m_text.substr(LineStart(key), key - LineStart(key));
        return CXString(before.substr(0, std::min(before.find_first_not_of(" \t"), before.size())));
    }

    static void AppendQuoted(CXStringEdit& out, absl::string_view text) {
        CXStringEdit doubled(text);
        doubled.ReplaceAll("\"", "\"\"");
        out.AppendFormat("\"%s\"", doubled.ToString().GetData());
    }

    absl::string_view m_text;
    const VelPatchNewBuild& m_build;
    const char* m_lineEnd;
    VelPatchConfigDocument m_document;
    std::vector<Change> m_changes;
};

} // namespace

bool AddBuildToServiceText(absl::string_view text, const VelPatchNewBuild& build, CXString& out,
                           CXString& problem) {
    return Editor(text, build).Run(out, problem);
}

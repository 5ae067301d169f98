// Writes a patch stream service as files: what a web server needs to answer without any program of
// ours.
#pragma once

#include "core/CXResult.h"
#include "kit/VelPatchPublishModel.h"

#include <functional>
#include <map>
#include <set>

/// Publishes one service into one folder:
///   files/    control and data files, named by their own digests
///   replies/  the texts that the scripts answer, named likewise
///   nginx/    the configuration, which alone says which of them are on offer
/// Files named by their contents never change, so the folder is good at every moment: a server that
/// runs goes on with what it has read until it reads the configuration again. One thread.
class VelPatchPublisher {
public:
    struct Summary {
        size_t patches = 0;
        size_t replies = 0;
        size_t filesCopied = 0;
        size_t filesRemoved = 0;
        uint64_t bytesCopied = 0;
    };

    VelPatchPublisher(VelPatchPublishService& service, const CXString& outFolder)
        : m_service(service), m_outFolder(outFolder) {}

    void SetProgress(std::function<void(const CXString&, double)> progress) {
        m_progress = std::move(progress);
    }
    void SetStopTest(std::function<bool()> isStopped) { m_isStopped = std::move(isStopped); }

    /// Looks at every file that the service names, takes the anchor checksums and the digests, and
    /// holds control files against data files and builds. Writes nothing. False if there are
    /// problems.
    bool Check();
    /// After a good Check: writes. With `prune`, files and replies that are on offer no more are
    /// then removed. kCXResultCancelled if stopped; `problem` tells what failed. Until the last
    /// step, which puts the new configuration in place of the old, nothing is taken from what a
    /// server may be using.
    CXResult Write(bool prune, CXString& problem);

    const std::vector<CXString>& GetProblems() const { return m_problems; }
    const std::vector<CXString>& GetWarnings() const { return m_warnings; }
    const Summary& GetSummary() const { return m_summary; }
    /// Absolute paths of what the last step put in place; the stand-alone one may be empty.
    CXString GetHttpPath() const;
    CXString GetServerPath() const;
    CXString GetStandAlonePath() const;

private:
    struct Source {
        CXString path;
        CXString name; ///< below "files"
        CXString checksum;
        uint64_t size = 0;
    };

    void CheckStream(VelPatchPublishStream& stream);
    void CheckPatch(const VelPatchPublishStream& stream, const VelPatchPublishBuild* build,
                    const VelPatchPublishPatch& patch);
    void CheckAnchor(const VelPatchPublishStream& stream, const VelPatchPublishBuild* build,
                     const VelPatchPublishPatch& patch, const struct PatchControl& control);
    const Source* AddSource(const CXString& place, const CXString& path, const char* extension);
    CXString Digest(const CXString& path, uint64_t size);
    CXResult CopySource(const Source& source, CXString& problem);
    CXResult WriteText(const CXString& path, const CXString& text, CXString& problem);
    CXResult WriteReplies(CXString& httpPart, CXString& problem);
    CXResult WriteConfiguration(const CXString& httpPart, CXString& problem);
    void Prune(const CXString& folder, const std::set<CXString>& kept);
    CXString GetServedFolder() const;
    bool IsStopped() const { return m_isStopped && m_isStopped(); }
    void Complain(const CXString& place, const CXString& words);

    VelPatchPublishService& m_service;
    CXString m_outFolder;
    std::map<CXString, Source> m_sources; ///< by path
    std::map<CXString, CXString> m_replies; ///< name to text
    std::vector<CXString> m_problems, m_warnings;
    Summary m_summary;
    std::function<void(const CXString&, double)> m_progress;
    std::function<bool()> m_isStopped;
};

// Writes a patch stream service as files: what a web server needs to answer without any program of
// ours.
#pragma once

#include "core/CXResult.h"
#include "kit/VelPatchPublishModel.h"

#include <functional>
#include <map>
#include <set>
#include <utility>
#include <vector>

class CXStreamFile;
struct PatchControl;

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

    /// `outFolder` is absolute. The service must outlive the object, which fills in checksums.
    VelPatchPublisher(VelPatchPublishService& service, const CXString& outFolder)
        : m_service(service), m_outFolder(outFolder) {}

    void SetProgress(std::function<void(const CXString&, double)> progress) {
        m_progress = std::move(progress);
    }
    void SetStopTest(std::function<bool()> isStopped) { m_isStopped = std::move(isStopped); }

    /// Looks at every file that the service names, takes the anchor checksums and the digests, and
    /// holds control files against data files and builds. Writes nothing. False if there are
    /// problems, or when stopped.
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
    /// A file that is published.
    struct Source {
        CXString path;
        CXString checksum;
        CXString name; ///< below "files"
        uint64_t size = 0;
    };

    void CheckFolder();
    void CheckStream(VelPatchPublishStream& stream);
    void CheckPatch(const VelPatchPublishStream& stream, const VelPatchPublishBuild* build,
                    const VelPatchPublishPatch& patch);
    void CheckAnchor(const VelPatchPublishStream& stream, const VelPatchPublishBuild* build,
                     const VelPatchPublishPatch& patch, const PatchControl& control);
    /// Null if the file can't be published.
    const Source* AddSource(const CXString& place, const CXString& path, const char* extension);
    /// Digests a file, and copies it too if `to` is open. False if it can't be read.
    bool Digest(const CXString& path, const char* activity, CXStreamFile* to, Source& source);
    CXResult CopySource(const Source& source, CXString& problem);
    CXResult WriteReplies(const std::map<CXString, CXString>& replies, CXString& problem);
    CXResult WriteConfiguration(const CXString& httpPart, CXString& problem);
    void Prune(const char* folder, const std::set<CXString>& kept);

    CXString GetPath(const char* relative) const;
    CXString GetServedFolder() const;
    bool IsStopped() const { return m_isStopped && m_isStopped(); }
    void Complain(const CXString& place, const CXString& words);
    void Warn(const CXString& place, const CXString& words);

    VelPatchPublishService& m_service;
    CXString m_outFolder;
    std::map<CXString, Source> m_sources; ///< by path
    std::vector<CXString> m_problems;
    std::vector<CXString> m_warnings;
    Summary m_summary;
    std::function<void(const CXString&, double)> m_progress;
    std::function<bool()> m_isStopped;
};

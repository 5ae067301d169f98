#include "app/VelPatchUpdateService.h"

#include "app/config/VelPatchProcessSettings.h"
#include "core/CXFileSystem.h"
#include "runtime/CXWorkerHost.h"
#include "stream/CXStreamFile.h"
#include "stream/CXStreamTools.h"

#include <utility>

namespace {

/// Brings `done` to the main thread; it is called there if the page still lives. The pointer was
/// made on the main thread, where the page dies, and is only looked at there.
template <typename Done, typename Answer>
void Complete(const CXSafePointer<CXSafePointerTarget>& page, const Done& done,
              const Answer& answer) {
    CXWorkerHost::GetSingleton()->PostToMain(nullptr, [page, done, answer] {
        if (page.IsSet()) {
            done(answer);
        }
    });
}

VelPatchServiceReply FetchOnWorker(const CXString& address) {
    return FetchServiceReply(address, &CXWorkerHost::GetSingleton()->GetCancelEvent());
}

/// What the check for a patch needs, copied, so that the job shares nothing with the window.
struct StreamFileJob {
    VelPatchStreamFileQuery query; ///< the build is found by the job unless it is an installation
    CXString target;
    CXString anchorFile;
    CXString anchorChecksum;
    bool isInstallation;
    bool isOffline;

    VelPatchStreamFileCompletion Run() {
        using Kind = VelPatchStreamFileCompletion::Kind;
        VelPatchStreamFileCompletion completion;
        if (!isInstallation) {
            const VelPatchUpdateService::InstalledBuild build =
                VelPatchUpdateService::ReadInstalledBuild(target, anchorFile);
            if (build.result != kCXResultOK) {
                completion.kind = Kind::InvalidTarget;
                completion.anchorPath = build.anchorPath;
                completion.anchorResult = build.result;
                return completion;
            }
            query.build = build.identity;
        }
        if (!isOffline) {
            completion.reply = FetchOnWorker(AddressOfQuery(query));
        } else if (!isInstallation && query.build != anchorChecksum) {
            completion.kind = Kind::WrongBuild;
        } else {
            completion.kind = Kind::OfflineReady;
        }
        return completion;
    }
};

} // namespace

VelPatchUpdateService::InstalledBuild
VelPatchUpdateService::ReadInstalledBuild(const CXString& target, const CXString& anchorFile) {
    InstalledBuild build;
    build.anchorPath = CXFileSystem::Join(target, anchorFile);
    CXStreamFile file;
    file.Open(build.anchorPath, kOpenRead);
    build.result = file.GetLastError();
    if (build.result == kCXResultOK) {
        const CXString digest = MD5OfStream(file, file.GetRemaining());
        if (file.GetLastError() == kCXResultOK) {
            build.identity = digest;
        }
    }
    return build;
}

void VelPatchUpdateService::PostStreamCheck(CXSafePointerTarget& page,
                                            const VelPatchConfiguration& configuration,
                                            const CXString& username, const CXString& password,
                                            StreamCheckDone done) {
    VelPatchStreamCheckQuery query;
    query.serviceBase = configuration.serviceBase;
    query.username = username;
    query.password = password;
    query.locale = GetProcessSettings().locale;
    query.bundleId = configuration.bundleId;
    query.installationId = configuration.installationId;
    query.isInstallation = configuration.isInstallation;
    CXWorkerHost::GetSingleton()->PostJob(
        [query, owner = CXSafePointer<CXSafePointerTarget>(&page), called = std::move(done)] {
            Complete(owner, called,
                     VelPatchStreamCheckReply{.username = query.username,
                                              .password = query.password,
                                              .reply = FetchOnWorker(AddressOfQuery(query))});
        });
}

void VelPatchUpdateService::PostStreamFileCheck(CXSafePointerTarget& page,
                                                const VelPatchConfiguration& configuration,
                                                const VelPatchSettings& settings,
                                                StreamFileDone done) {
    StreamFileJob job;
    job.query.serviceBase = configuration.serviceBase;
    job.query.username = settings.username;
    job.query.password = settings.password;
    job.query.streamId = settings.streamId;
    job.query.build = configuration.installationId;
    job.query.locale = GetProcessSettings().locale;
    job.target = configuration.targetPath;
    job.anchorFile = configuration.anchorFile;
    job.anchorChecksum = configuration.anchorChecksum;
    job.isInstallation = configuration.isInstallation;
    job.isOffline = configuration.isOffline;
    CXWorkerHost::GetSingleton()->PostJob(
        [job, owner = CXSafePointer<CXSafePointerTarget>(&page),
         called = std::move(done)]() mutable { Complete(owner, called, job.Run()); });
}

int VelPatchUpdateService::CheckForPatch(const VelPatchCheckRequest& request) {
    VelPatchStreamFileQuery query;
    query.build = ReadInstalledBuild(request.target, request.anchorFile).identity;
    if (query.build.IsEmpty()) {
        return kCheckFailed;
    }
    query.serviceBase = request.serviceBase;
    query.username = request.settings.username;
    query.password = request.settings.password;
    query.streamId = request.settings.streamId;
    query.locale = GetProcessSettings().locale;
    if (query.streamId.IsEmpty()) {
        VelPatchStreamCheckQuery check;
        check.serviceBase = request.serviceBase;
        check.username = request.settings.username;
        check.password = request.settings.password;
        check.locale = query.locale;
        check.bundleId = request.bundleId;
        check.installationId = request.installationId;
        const VelPatchDefaultStream stream =
            DefaultStreamOf(FetchServiceReply(AddressOfQuery(check)));
        if (stream.streamId.IsEmpty()) {
            return stream.exitCode;
        }
        query.streamId = stream.streamId;
    }
    return CheckResultOf(FetchServiceReply(AddressOfQuery(query)));
}

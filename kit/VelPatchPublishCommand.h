// "velpatch-kit publish": its options and its run.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}
class VelPatchConsole;

struct VelPatchPublishOptions {
    std::string serviceFile;
    std::string outFolder;
    bool prune = false;
    std::vector<std::string> addBuild; ///< empty, or STREAM and BUILD
    std::string anchorFile, anchorChecksum, description;
    std::vector<std::string> patches;       ///< BUILD=FOLDER
    std::vector<std::string> installations; ///< ID=FOLDER
};

/// Adds the subcommand to the command line; `options` must outlive it.
void DefinePublish(CLI::App& app, VelPatchPublishOptions& options);
/// Runs it. Answers the kit's exit code.
int RunPublish(const VelPatchPublishOptions& options, VelPatchConsole& console);

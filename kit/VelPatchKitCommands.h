// The kit's commands that make patches, look at them, targets and configurations, cut data files
// up, publish a service, and remove a game.
#pragma once

#include <functional>
#include <vector>

namespace CLI {
class App;
}
class VelPatchConsole;

/// A command and what runs it, answering the kit's exit code.
struct VelPatchKitCommand {
    CLI::App* app;
    std::function<int(VelPatchConsole&)> run;
};

/// Adds "make".
void DefineMake(CLI::App& app, std::vector<VelPatchKitCommand>& commands);
/// Adds "inspect" and "verify".
void DefineInspection(CLI::App& app, std::vector<VelPatchKitCommand>& commands);
/// Adds "split" and "join".
void DefineVolumes(CLI::App& app, std::vector<VelPatchKitCommand>& commands);
/// Adds "check-config".
void DefineConfigurationCheck(CLI::App& app, std::vector<VelPatchKitCommand>& commands);
/// Adds "publish".
void DefinePublish(CLI::App& app, std::vector<VelPatchKitCommand>& commands);
/// Adds "uninstall".
void DefineUninstall(CLI::App& app, std::vector<VelPatchKitCommand>& commands);

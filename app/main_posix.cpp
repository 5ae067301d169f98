#include "app/VelPatchEntry.h"
#include "app/VelPatchHandOver.h"
#include "app/VelPatchWizard.h"

int main(int argc, char** argv) {
    VelPatchArguments arguments;
    arguments.words.assign(argv, argv + argc);
    arguments.rawLine = MakeHandOverLine(std::vector<std::string>(argv + (argc > 0), argv + argc));
    return RunVelPatch(arguments, {RunVelPatchWizard});
}

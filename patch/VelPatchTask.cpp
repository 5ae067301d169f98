#include "patch/VelPatchTask.h"

bool VelPatchTask::Begin(const CXString& /*targetFolder*/) {
    return false;
}

void VelPatchTask::GetStatus(TaskStatus& /*out*/) {}

void VelPatchTask::AnswerPrompt(bool /*retry*/) {}

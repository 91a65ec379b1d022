#pragma once

#include <CanIsoTpHandler.h>

#include <string>

/// The protocol state, read under the handler's lock.
CanIsoTpHandler::expFrameType_t expectationOf(CanIsoTpHandler& handler);

/// Commands that wait in the handler's pipe; they stay there.
std::string pendingCommands(CanIsoTpHandler& handler);

/// Carries out the first command in the pipe, as the worker would.
/// @return the command; 0 if there is none
char carryOutCommand(CanIsoTpHandler& handler);

/// Carries out the commands in the pipe, and those that they cause, as the worker would.
void carryOutCommands(CanIsoTpHandler& handler);

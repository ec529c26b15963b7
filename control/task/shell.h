// Shell commands of the application.
#pragma once

#include <string>

// Runs the command and waits for its end; what it makes of it is not looked at. The log so far is
// written out before, so that the command's own output comes after it.
void runShell(const std::string& command);

#pragma once

#include "CommandLine.h"

// Runs one job of the host to its end on the event loop: places the settings and the log, chooses
// the renderer, starts the job, turns Ctrl-C into a clean stop. Returns the exit code.
int RunUpdateHost(const UpdateOptions& options);

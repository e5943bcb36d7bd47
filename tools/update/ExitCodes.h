#pragma once

#include "JobEvents.h"

#include <QString>

// The program's exit codes, documented in --help and the README.
enum class ExitCode : int
{
    Done = 0, // done, up to date, or nothing to do
    Usage = 1,
    Network = 2, // the server could not be reached, or it is under maintenance
    VerifyFailed = 3, // verification still failing after a repair or a second download
    NoSpace = 4,
    FileInUse = 5,
    ToolFailed = 6,
    DocumentRefused = 7, // a server document that is unusable or names a path outside its folder
    Busy = 8, // another run holds this install folder
    SettingsUnwritable = 9,
    Untrusted = 10, // the channel's signed list refused, or a document or package not as it says
    Interrupted = 130,
};

// The one mapping from how the job ended to the exit code.
ExitCode ExitCodeFor(const StageResult& result);

// The table printed by --help and copied into the README.
QString ExitCodeTable();

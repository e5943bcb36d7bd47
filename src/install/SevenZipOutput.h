#pragma once

#include "core/CoreExport.h"

#include <QString>

// What the unpacker reads from the 7-Zip console program: the progress in its output and the meaning
// of its exit codes, with the texts a player is shown for them.
namespace SevenZipOutput {

// Exit codes the unpacker also uses for failures the tool never got to report itself.
constexpr int kFatalError = 2;
constexpr int kUserStopped = 255;

// The percent of one burst of output: the two characters before the first "%" as a number, -1 when
// there is no "%". Only two characters are read, so "100%" gives 0; the launcher has always shown
// it that way.
CORE_EXPORT int PercentOf(const QString& output);

struct ExitCodeMeaning
{
    int code; // the unpack record's result code
    QString text; // what the player is told when the tool itself said nothing
};

// The unpack record's code for a tool exit code; an exit code outside the table keeps previousCode.
CORE_EXPORT ExitCodeMeaning MeaningOfExitCode(int exitCode, int previousCode);

CORE_EXPORT QString NotStartedText(const QString& reason);
CORE_EXPORT QString CrashedText();
CORE_EXPORT QString UnsafeDestinationText(const QString& folder);

} // namespace SevenZipOutput

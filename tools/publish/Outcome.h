#pragma once

#include <QString>

namespace Publish {

// The program's exit codes, listed by --help and in the README.
enum class ExitCode : int
{
    Done = 0,
    Usage = 1, // the command line is wrong
    BadInput = 2, // VERSIONS or the info template cannot be published as they are
    MissingTool = 3, // 7-Zip not found
    ToolFailed = 4, // 7-Zip ended with an error
    // 5 meant a diff that did not rebuild its file; such a file now travels whole.
    OutputFailed = 6, // OUTPUT could not be written: no space, no permission, or not a channel root
};

// How a step ended: Done, or the exit code with a message for the operator.
struct Outcome
{
    ExitCode code = ExitCode::Done;
    QString text;

    bool ok() const { return code == ExitCode::Done; }
    static Outcome Failure(ExitCode code, const QString& text) { return { code, text }; }
};

// The exit codes with one line each, for --help.
QString ExitCodeTable();

} // namespace Publish

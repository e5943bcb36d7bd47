#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace Publish {

// One run of an external program to its end. The library's runner belongs to the player's side and is
// not exported; the publisher needs no cancelling or time limit, so this is its own, smaller one.
struct ToolRun
{
    QString program;
    QStringList arguments;
    QString workingDir; // empty: the current one
    std::function<void(const QByteArray&)> onOutput; // each burst of standard output
};

struct ToolResult
{
    enum class Ending
    {
        Finished, // exitCode is the program's own
        FailedToStart,
        Crashed,
    };
    Ending ending = Ending::FailedToStart;
    int exitCode = -1;
    QString errorText; // the program's standard error, or why it did not start

    bool succeeded() const { return ending == Ending::Finished && exitCode == 0; }
    // "exit code 2: <text>", "crashed", "could not start: <reason>"
    QString describe() const;
};

ToolResult RunTool(const ToolRun& run);

} // namespace Publish

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

// Runs one external program to its end from a worker thread. Internal to the library: every stage
// that starts a program goes through it, so a missing tool, a crash, a hang and a cancelled job are
// told apart the same way everywhere.
namespace ToolRunner {

enum class Outcome
{
    Finished, // exitCode is the program's own
    FailedToStart,
    Crashed,
    TimedOut, // killed after the time limit
    Cancelled, // killed because the worker thread was asked to stop
};

struct Result
{
    Outcome outcome = Outcome::FailedToStart;
    int exitCode = -1;
    QByteArray remainingOutput; // standard output not yet handed to the burst callback
    QByteArray standardError;
    QString startError;
};

struct Request
{
    QString program;
    QStringList arguments;
    int pollMs = 10;
    int timeoutMs = -1; // -1: wait as long as the program runs
    // Called on the worker thread with each burst of standard output read while the program runs.
    std::function<void(const QByteArray&)> onOutput;
};

Result Run(const Request& request);

// Text written by a tool in the local 8-bit code page.
QString DecodeToolText(const QByteArray& bytes);

} // namespace ToolRunner

#include "HostRun.h"

#include "ExitCodes.h"
#include "InterruptWatcher.h"
#include "Renderer.h"
#include "SettingsPlacement.h"
#include "UpdateJob.h"

#include "core/GlobalVar.h"
#include "log/Logger.h"
#include "settings/Serializer.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTimer>

#include <cstdio>
#include <cstdlib>

#ifdef Q_OS_WIN
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

// The library writes its diagnostics through Qt's message log; they belong in the log file, not
// between the progress lines.
void quietMessageHandler(QtMsgType type, const QMessageLogContext&, const QString& message)
{
    if (type == QtFatalMsg)
        std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
}

bool standardErrorIsTerminal()
{
#ifdef Q_OS_WIN
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

QString placeSettingsAndLog(const UpdateOptions& options)
{
    const QString programFolder = QCoreApplication::applicationDirPath();
    if (!options.bDryRun && !SettingsPlacement::IsWritableFolder(programFolder))
        QDir().mkpath(options.folder);
    const QString folder = SettingsPlacement::Folder(programFolder, options.folder);
    if (folder != programFolder)
        Serializer::SetConfigFolder(folder);

    qInstallMessageHandler(quietMessageHandler);
    if (!options.bDryRun) {
        // The logger writes "log/launcher.log" below the working folder.
        QDir::setCurrent(folder);
        Global::Var::bLog = true;
        Logger::LogToFile(true);
    }
    return folder;
}

} // namespace

int RunUpdateHost(const UpdateOptions& options)
{
    const QString settingsFolder = placeSettingsAndLog(options);

    QFile out;
    QFile err;
    // By descriptor: through the C library's stream, a pipe would see the lines only at the end.
    out.open(fileno(stdout), QIODevice::WriteOnly | QIODevice::Unbuffered);
    err.open(fileno(stderr), QIODevice::WriteOnly | QIODevice::Unbuffered);
    const std::unique_ptr<Renderer> renderer
        = MakeRenderer(options.bJson, &out, &err, standardErrorIsTerminal());

    UpdateJob job(options, settingsFolder);
    int exitCode = int(ExitCode::Done);
    QObject::connect(
        &job, &UpdateJob::stageStarted, [&](const StageEvent& event) { renderer->stageStarted(event); });
    QObject::connect(
        &job, &UpdateJob::progressed, [&](const ProgressEvent& event) { renderer->progressed(event); });
    QObject::connect(&job, &UpdateJob::noticed, [&](const QString& text) { renderer->noticed(text); });
    QObject::connect(&job, &UpdateJob::planned, [&](const UpdatePlan& plan) { renderer->planned(plan); });
    QObject::connect(&job, &UpdateJob::finished, [&](const StageResult& result, const JobSummary& summary) {
        exitCode = int(ExitCodeFor(result));
        renderer->finished(result, summary, exitCode);
        QCoreApplication::exit(exitCode);
    });

    InterruptWatcher watcher;
    int interrupts = 0;
    QObject::connect(&watcher, &InterruptWatcher::interrupted, [&] {
        // A second Ctrl-C does not wait for the stage to end.
        if (++interrupts > 1)
            std::_Exit(int(ExitCode::Interrupted));
        job.interrupt();
    });

    QTimer::singleShot(0, &job, &UpdateJob::start);
    QCoreApplication::exec();
    return exitCode;
}

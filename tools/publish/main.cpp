#include "CommandLine.h"
#include "InfoDocument.h"
#include "KeyFile.h"
#include "Publisher.h"
#include "TerminalProgress.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstdio>

using namespace Publish;

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    // The library's own log lines are for the launcher's log file, not for the operator's terminal.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));

    const CommandLine commandLine = ParseCommandLine(QCoreApplication::arguments());
    switch (commandLine.action) {
    case CommandLine::Action::ShowHelp:
        std::fputs(commandLine.text.toLocal8Bit().constData(), stdout);
        return int(ExitCode::Done);
    case CommandLine::Action::ShowInfoTemplate:
        std::fputs(InfoDocument::DefaultTemplate().toUtf8().constData(), stdout);
        return int(ExitCode::Done);
    case CommandLine::Action::Refuse:
        std::fprintf(stderr, "core-publish: %s\nTry core-publish --help.\n",
            commandLine.text.toLocal8Bit().constData());
        return int(ExitCode::Usage);
    case CommandLine::Action::GenerateKey: {
        const Outcome outcome = KeyFile::Generate(commandLine.keyPath);
        if (!outcome.ok())
            std::fprintf(stderr, "core-publish: %s\n", outcome.text.toLocal8Bit().constData());
        return int(outcome.code);
    }
    case CommandLine::Action::Publish:
        break;
    }

    Publisher publisher(commandLine.options);
    TerminalProgress progress(stderr, TerminalProgress::IsTerminal(stderr));
    QObject::connect(&publisher, &Publisher::stepStarted, &progress, &TerminalProgress::showStep);
    QObject::connect(&publisher, &Publisher::percentChanged, &progress, &TerminalProgress::showPercent);
    QObject::connect(&publisher, &Publisher::noticed, &progress, &TerminalProgress::showNotice);
    const Outcome outcome = publisher.run();
    if (!outcome.ok())
        progress.showError(outcome.text);
    return int(outcome.code);
}

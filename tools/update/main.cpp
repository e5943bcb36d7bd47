#include "CommandLine.h"
#include "ExitCodes.h"
#include "HostRun.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("core-update"));
    const ParsedCommandLine parsed = ParseCommandLine(QCoreApplication::arguments());
    if (parsed.bHelp) {
        std::fputs(HelpText().toLocal8Bit().constData(), stdout);
        return int(ExitCode::Done);
    }
    if (!parsed.error.isEmpty()) {
        std::fprintf(
            stderr, "core-update: %s\nTry core-update --help.\n", parsed.error.toLocal8Bit().constData());
        return int(ExitCode::Usage);
    }
    return RunUpdateHost(parsed.options);
}

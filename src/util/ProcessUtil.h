#pragma once

#include "core/CoreExport.h"

#include <QList>
#include <QString>

// The processes around the installation: those running a given program, and those holding a given
// file, which keep it from being replaced.
class CORE_EXPORT ProcessUtil
{
public:
    struct Entry
    {
        qint64 pid = 0;
        QString name; // as the system shows it: the program's file name, or its title on Windows
    };

    // Processes whose executable is executablePath (either separator; case-insensitive on Windows).
    static QList<qint64> FindByExecutable(const QString& executablePath);
    // Ends the processes at once, without asking, and waits a moment for them to be gone, since a
    // running program's files cannot be replaced on Windows. Returns how many are gone.
    static int EndProcesses(const QList<qint64>& pids);
    static int EndByExecutable(const QString& executablePath);
    // Processes that have filePath open or loaded, for the "file in use" message.
    static QList<Entry> FindFileHolders(const QString& filePath);
};

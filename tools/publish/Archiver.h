#pragma once

#include "Outcome.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>

namespace Publish {

// Makes 7-Zip archives that come out the same byte for byte from the same files: the files in the
// order given, no time stamps stored.
class Archiver
{
public:
    Archiver(const QString& program, int level, const QString& workDir);

    void setPercentCallback(std::function<void(int)> onPercent) { m_onPercent = std::move(onPercent); }

    // Packs relPaths, relative to sourceDir, into archivePath; with partSize > 0 into parts
    // archivePath.001, .002, ... of that many bytes. written gets the files made, in order.
    Outcome pack(const QString& sourceDir, const QStringList& relPaths, const QString& archivePath,
        qint64 partSize, QStringList& written) const;

    // The last "NN%" of a burst of 7-Zip's progress output, or -1.
    static int LastPercent(const QByteArray& burst);
    // What one of 7-Zip's exit codes means.
    static QString ExitCodeText(int exitCode);

private:
    QString m_program;
    int m_level;
    QString m_workDir;
    std::function<void(int)> m_onPercent;
};

} // namespace Publish

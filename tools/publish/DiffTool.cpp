#include "DiffTool.h"

#include "ToolProcess.h"

#include <QDir>
#include <QStandardPaths>

namespace Publish {

DiffTool::DiffTool(const QString& program)
    : m_program(program)
{ }

QString DiffTool::Locate()
{
#ifdef Q_OS_WIN
    return QStandardPaths::findExecutable(QStringLiteral("xdelta3.exe"));
#else
    return QStandardPaths::findExecutable(QStringLiteral("xdelta3"));
#endif
}

Outcome DiffTool::encode(const QString& oldFile, const QString& newFile, const QString& diffFile) const
{
    return run(QStringLiteral("make the diff for %1").arg(newFile),
        { QStringLiteral("-e"), QStringLiteral("-9"), QStringLiteral("-f"), QStringLiteral("-s"),
            QDir::toNativeSeparators(oldFile), QDir::toNativeSeparators(newFile),
            QDir::toNativeSeparators(diffFile) });
}

Outcome DiffTool::decode(const QString& oldFile, const QString& diffFile, const QString& outFile) const
{
    return run(QStringLiteral("apply the diff %1").arg(diffFile),
        { QStringLiteral("-d"), QStringLiteral("-f"), QStringLiteral("-s"), QDir::toNativeSeparators(oldFile),
            QDir::toNativeSeparators(diffFile), QDir::toNativeSeparators(outFile) });
}

Outcome DiffTool::run(const QString& what, const QStringList& arguments) const
{
    const ToolResult result = RunTool({ m_program, arguments, QString(), {} });
    if (result.succeeded())
        return {};
    return Outcome::Failure(
        ExitCode::ToolFailed, QStringLiteral("xdelta3 could not %1: %2").arg(what, result.describe()));
}

} // namespace Publish

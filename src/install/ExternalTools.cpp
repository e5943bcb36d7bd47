#include "install/ExternalTools.h"

#include "log/Logger.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>

namespace ExternalTools {

namespace {

const QString kTag = QStringLiteral("ExternalTools");

QString executableName(const QString& baseName)
{
#ifdef Q_OS_WIN
    return baseName + QStringLiteral(".exe");
#else
    return baseName;
#endif
}

// Looked up on every start rather than once per process, so a tool that is repaired or installed
// while the launcher runs is found by the next stage.
QString locate(const QStringList& baseNames)
{
    const QString appDir = QCoreApplication::applicationDirPath();
    for (const QString& baseName : baseNames) {
        const QFileInfo beside(appDir + QLatin1Char('/') + executableName(baseName));
        if (beside.isFile() && beside.isExecutable()) {
            Logger::LogInfo(kTag, QStringLiteral("found %1").arg(beside.absoluteFilePath()));
            return beside.absoluteFilePath();
        }
    }
    for (const QString& baseName : baseNames) {
        const QString onPath = QStandardPaths::findExecutable(executableName(baseName));
        if (!onPath.isEmpty()) {
            Logger::LogInfo(kTag, QStringLiteral("found %1").arg(onPath));
            return onPath;
        }
    }
    Logger::LogInfo(kTag, QStringLiteral("not found: %1").arg(baseNames.join(QStringLiteral(", "))));
    return QString();
}

} // namespace

QString SevenZipPath()
{
#ifdef Q_OS_WIN
    return locate({ QStringLiteral("7z") });
#else
    return locate({ QStringLiteral("7z"), QStringLiteral("7zz") });
#endif
}

QString DiffPatchPath()
{
    return locate({ QStringLiteral("hpatchz") });
}

QString MissingToolText(const QString& toolName)
{
    return QStringLiteral("找不到程序%1，请重新安装启动器 (program %1 not found; reinstall the launcher)")
        .arg(executableName(toolName));
}

} // namespace ExternalTools

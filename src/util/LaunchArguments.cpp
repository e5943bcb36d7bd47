#include "util/LaunchArguments.h"

#include "core/Constants.h"
#include "core/GlobalVar.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStringList>

namespace {

const QString kTag = QStringLiteral("LaunchArguments");

QString* memberFor(const QString& key)
{
    using namespace Morvantix;
    if (key == QLatin1String(Const::Channel))
        return &Global::Var::Channel;
    if (key == QLatin1String(Const::Host))
        return &Global::Var::Host;
    if (key == QLatin1String(Const::HostAndChannel))
        return &Global::Var::HostAndChannel;
    if (key == QLatin1String(Const::LauncherChannel))
        return &Global::Var::LauncherChannel;
    return nullptr;
}

} // namespace

QString LaunchArguments::DefaultFilePath()
{
    return QDir(QCoreApplication::applicationDirPath())
        .filePath(QLatin1String(Morvantix::Const::LaunchArgumentsFile));
}

int LaunchArguments::Apply(const QString& filePath)
{
    QFile file(filePath);
    if (!file.open(QIODevice::ReadOnly)) {
        Logger::LogInfo(kTag, QStringLiteral("no argument file at %1").arg(filePath));
        return 0;
    }
    QString text = QString::fromUtf8(file.readAll());
    if (text.startsWith(QChar(0xFEFF)))
        text.remove(0, 1);

    int applied = 0;
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (const QString& rawLine : lines) {
        const QString line = rawLine.trimmed();
        if (line.isEmpty() || line.startsWith(QLatin1Char('#')) || line.startsWith(QLatin1Char(';')))
            continue;
        const int equals = line.indexOf(QLatin1Char('='));
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        QString* member = equals > 0 ? memberFor(key) : nullptr;
        if (!member || value.isEmpty()) {
            Logger::LogInfo(kTag, QStringLiteral("ignored: %1").arg(line));
            continue;
        }
        *member = value;
        ++applied;
        Logger::LogInfo(kTag, QStringLiteral("%1 = %2").arg(key, value));
    }
    return applied;
}

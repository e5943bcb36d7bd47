#include "planning/VersionUtil.h"

#include <QLatin1Char>

namespace Morvantix {

namespace {

int versionPart(const QString& text, int index)
{
    return text.section(QLatin1Char('.'), index, index).toInt(nullptr, 10);
}

// Sign extension first, then the bits are moved as unsigned so negative parts stay well defined.
quint64 widened(int part)
{
    return static_cast<quint64>(static_cast<qint64>(part));
}

} // namespace

void GetVersionByString(const QString& text, Version& out)
{
    out.major = versionPart(text, 0);
    out.minor = versionPart(text, 1);
    out.patch = versionPart(text, 2);
    out.build = versionPart(text, 3);
}

QString VersionToString(const Version& version)
{
    return QStringLiteral("%1.%2.%3.%4")
        .arg(version.major)
        .arg(version.minor)
        .arg(version.patch)
        .arg(version.build);
}

quint64 VersionOrderKey(const Version& version)
{
    quint64 key = widened(version.major) << 8;
    key = (key | widened(version.minor)) << 16;
    key = (key | widened(version.patch)) << 32;
    return key | widened(version.build);
}

} // namespace Morvantix

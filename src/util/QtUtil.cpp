#include "util/QtUtil.h"

#include "log/Logger.h"

#include <QFile>
#include <QFileInfo>
#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QScreen>
#include <QStorageInfo>
#include <QTextCodec>
#include <QWidget>

#include <cmath>

namespace QtUtil {

namespace {

const QString kTag = QStringLiteral("QtUtil");

QString withOneDecimal(double value)
{
    // "1.0" reads as "1": whole values carry no decimal.
    const double rounded = std::round(value * 10.0) / 10.0;
    if (rounded == std::floor(rounded))
        return QString::number(qint64(rounded));
    return QString::number(rounded, 'f', 1);
}

QString twoDigits(qint64 value)
{
    return QStringLiteral("%1").arg(value, 2, 10, QLatin1Char('0'));
}

QString nearestExistingPath(const QString& path)
{
    QFileInfo info(path);
    QString current = info.absoluteFilePath();
    while (!QFileInfo::exists(current)) {
        const QString parent = QFileInfo(current).absolutePath();
        if (parent == current)
            return QString();
        current = parent;
    }
    return current;
}

} // namespace

QString GetUnicodeString(const QByteArray& text)
{
    QTextCodec* utf8 = QTextCodec::codecForName("UTF-8");
    QTextCodec::ConverterState state;
    const QString decoded = utf8->toUnicode(text.constData(), text.size(), &state);
    if (state.invalidChars == 0 && state.remainingChars == 0)
        return decoded;
    return QTextCodec::codecForLocale()->toUnicode(text);
}

QString FormatSize(qint64 bytes)
{
    static const char* const units[] = { "B", "KB", "MB", "GB", "TB" };
    constexpr int lastUnit = int(sizeof(units) / sizeof(units[0])) - 1;
    double value = double(qMax<qint64>(0, bytes));
    int unit = 0;
    while (unit < lastUnit && value >= 1024.0) {
        value /= 1024.0;
        ++unit;
    }
    // 1023.96 KB would round to "1024 KB": it is shown as the next unit instead.
    if (unit > 0 && unit < lastUnit && std::round(value * 10.0) >= 10240.0) {
        value /= 1024.0;
        ++unit;
    }
    const QString number = unit == 0 ? QString::number(qint64(value)) : withOneDecimal(value);
    return QStringLiteral("%1 %2").arg(number, QLatin1String(units[unit]));
}

QString FormatDuration(qint64 seconds)
{
    const qint64 total = qMax<qint64>(0, seconds);
    if (total < 60)
        return QStringLiteral("%1s").arg(total);
    if (total < 3600)
        return QStringLiteral("%1m %2s").arg(total / 60).arg(twoDigits(total % 60));
    return QStringLiteral("%1h %2m").arg(total / 3600).arg(twoDigits(total % 3600 / 60));
}

qint64 GetFreeDiskSpace(const QString& path)
{
    const QString existing = nearestExistingPath(path);
    const QStorageInfo storage(existing);
    if (existing.isEmpty() || !storage.isValid()) {
        Logger::LogInfo(kTag, QStringLiteral("no volume holds %1").arg(path));
        return -1;
    }
    return storage.bytesAvailable();
}

bool LoadStyleSheet(QWidget* widget, const QString& filePath)
{
    QFile file(filePath);
    if (!widget || !file.open(QIODevice::ReadOnly)) {
        Logger::LogInfo(kTag, QStringLiteral("style sheet %1 not loaded").arg(filePath));
        return false;
    }
    widget->setStyleSheet(QString::fromUtf8(file.readAll()));
    return true;
}

QFont GetFont(const QString& family, int pixelSize, const QString& fallbackFamily)
{
    const QFontDatabase fonts;
    QFont font = QGuiApplication::font();
    if (fonts.hasFamily(family)) {
        font.setFamily(family);
    } else if (!fallbackFamily.isEmpty() && fonts.hasFamily(fallbackFamily)) {
        Logger::LogInfo(kTag, QStringLiteral("font %1 missing, using %2").arg(family, fallbackFamily));
        font.setFamily(fallbackFamily);
    } else {
        Logger::LogInfo(kTag, QStringLiteral("fonts %1 and %2 missing").arg(family, fallbackFamily));
    }
    if (pixelSize > 0)
        font.setPixelSize(pixelSize);
    return font;
}

void CenterWidget(QWidget* widget)
{
    if (!widget)
        return;
    QRect area;
    if (QWidget* parent = widget->parentWidget()) {
        // A child lives in its parent's coordinates; a window is placed in global ones.
        area = widget->isWindow() ? parent->window()->frameGeometry() : parent->rect();
    } else if (QScreen* screen = widget->screen() ? widget->screen() : QGuiApplication::primaryScreen()) {
        area = screen->availableGeometry();
    } else {
        return;
    }
    QRect frame = widget->frameGeometry();
    frame.moveCenter(area.center());
    widget->move(frame.topLeft());
}

} // namespace QtUtil

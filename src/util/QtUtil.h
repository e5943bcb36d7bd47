#pragma once

#include "core/CoreExport.h"

#include <QByteArray>
#include <QString>

// Widget types stay forward-declared: the library links Qt Gui and Widgets privately, and a caller
// that uses these helpers has them already.
class QFont;
class QWidget;

// Text, formatting, disk and widget helpers for the launcher's window.
namespace QtUtil {

// Text from a tool, a file or a message table: UTF-8 when it decodes cleanly as UTF-8, otherwise
// the local 8-bit code page (GBK on a Chinese Windows).
CORE_EXPORT QString GetUnicodeString(const QByteArray& text);

// "0 B", "512 B", "512 KB", "1.5 GB": binary units, at most one decimal, ".0" left out.
CORE_EXPORT QString FormatSize(qint64 bytes);
// "45s", "3m 05s", "1h 02m": the two largest units, the smaller one on two digits.
CORE_EXPORT QString FormatDuration(qint64 seconds);

// Bytes free to this user on the volume that holds path; a path that does not exist yet is
// measured at its nearest existing ancestor. -1 when nothing of it exists.
CORE_EXPORT qint64 GetFreeDiskSpace(const QString& path);

// Reads a UTF-8 style sheet file onto the widget; false (widget untouched) when it cannot be read.
CORE_EXPORT bool LoadStyleSheet(QWidget* widget, const QString& filePath);
// family at pixelSize; fallbackFamily when family is not installed, the application font's family
// when neither is.
CORE_EXPORT QFont GetFont(const QString& family, int pixelSize, const QString& fallbackFamily = QString());
// A child widget is centred in its parent, a window over its parent window, a window without a
// parent on the available area of its screen.
CORE_EXPORT void CenterWidget(QWidget* widget);

} // namespace QtUtil

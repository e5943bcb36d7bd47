#pragma once

#include <QString>
#include <QtGlobal>

// Texts of the host's output beyond QtUtil's sizes and durations.
namespace HumanText {

// "12.5 MB/s".
QString Speed(qint64 bytesPerSecond);
// "1 file", "3 files".
QString Files(qint64 count);

} // namespace HumanText

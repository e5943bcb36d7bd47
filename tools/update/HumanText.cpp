#include "HumanText.h"

#include "util/QtUtil.h"

namespace HumanText {

QString Speed(qint64 bytesPerSecond)
{
    return QtUtil::FormatSize(bytesPerSecond) + QStringLiteral("/s");
}

QString Files(qint64 count)
{
    return count == 1 ? QStringLiteral("1 file") : QStringLiteral("%1 files").arg(count);
}

} // namespace HumanText

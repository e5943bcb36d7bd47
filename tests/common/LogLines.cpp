#include "LogLines.h"

#include <QtGlobal>

namespace {

QMutex s_mutex;
QStringList s_lines;
QtMessageHandler s_previous = nullptr;

void collect(QtMsgType, const QMessageLogContext&, const QString& text)
{
    QMutexLocker lock(&s_mutex);
    s_lines.append(text);
}

} // namespace

LogLines::LogLines()
{
    QMutexLocker lock(&s_mutex);
    s_lines.clear();
    s_previous = qInstallMessageHandler(&collect);
}

LogLines::~LogLines()
{
    qInstallMessageHandler(s_previous);
}

QStringList LogLines::all() const
{
    QMutexLocker lock(&s_mutex);
    return s_lines;
}

bool LogLines::contains(const QStringList& parts) const
{
    const QStringList lines = all();
    for (const QString& line : lines) {
        bool every = true;
        for (const QString& part : parts)
            every = every && line.contains(part);
        if (every)
            return true;
    }
    return false;
}

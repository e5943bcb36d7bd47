#pragma once

#include <QByteArray>
#include <QFile>
#include <QList>

// Figures of this process as the kernel counts them ("/proc/self/status"), in KiB; 0 elsewhere.
inline double kibFromStatus(const char* field)
{
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field))
            return line.mid(qstrlen(field)).trimmed().split(' ').value(0).toDouble();
    }
    return 0;
}

inline qint64 peakResidentKb()
{
    return qint64(kibFromStatus("VmHWM:"));
}

#pragma once

#include <QMutex>
#include <QStringList>

// Collects every message, from any thread, while alive; the previous handler comes back afterwards.
class LogLines
{
public:
    LogLines();
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    QStringList all() const;
    // True when some line contains every one of the parts.
    bool contains(const QStringList& parts) const;
    bool contains(const QString& part) const { return contains(QStringList { part }); }
};

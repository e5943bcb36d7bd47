#pragma once

#include <QLoggingCategory>
#include <QMutex>
#include <QStringList>

#include <algorithm>

// Collects every message, from any thread, while alive; the previous handler comes back afterwards.
class LogLines
{
public:
    LogLines()
    {
        m_debugWasOn = QLoggingCategory::defaultCategory()->isDebugEnabled();
        QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, true);
        QMutexLocker lock(&s_mutex);
        s_lines.clear();
        m_previous = qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString& text) {
            QMutexLocker lock(&s_mutex);
            s_lines.append(text);
        });
    }
    ~LogLines()
    {
        qInstallMessageHandler(m_previous);
        QLoggingCategory::defaultCategory()->setEnabled(QtDebugMsg, m_debugWasOn);
    }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    QStringList all() const
    {
        QMutexLocker lock(&s_mutex);
        return s_lines;
    }
    // True when some line contains every one of the parts.
    bool contains(const QStringList& parts) const
    {
        const QStringList lines = all();
        return std::any_of(lines.cbegin(), lines.cend(), [&](const QString& line) {
            return std::all_of(
                parts.cbegin(), parts.cend(), [&](const QString& part) { return line.contains(part); });
        });
    }
    bool contains(const QString& part) const { return contains(QStringList { part }); }

private:
    static inline QMutex s_mutex;
    static inline QStringList s_lines;
    QtMessageHandler m_previous = nullptr;
    bool m_debugWasOn = true;
};

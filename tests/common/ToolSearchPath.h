#pragma once

#include <QDir>
#include <QFile>

// The program search path, where the library looks for an external tool not found beside the
// program. An object sets it for one test body and restores it afterwards.
class ToolSearchPath
{
public:
    explicit ToolSearchPath(const QByteArray& path) { qputenv("PATH", path); }
    ~ToolSearchPath() { qputenv("PATH", m_previous); }
    ToolSearchPath(const ToolSearchPath&) = delete;
    ToolSearchPath& operator=(const ToolSearchPath&) = delete;

    // For the whole run: the built tools in folder are found before any installed ones.
    static void prepend(const QString& folder)
    {
        qputenv("PATH", QFile::encodeName(folder) + QDir::listSeparator().toLatin1() + qgetenv("PATH"));
    }
    // None at all: no tool is found on it.
    static QByteArray none() { return QByteArrayLiteral("/nonexistent"); }

    // What the platform adds to a program's name: ".exe" on Windows.
    static QString executableSuffix()
    {
#ifdef Q_OS_WIN
        return QStringLiteral(".exe");
#else
        return QString();
#endif
    }

private:
    QByteArray m_previous = qgetenv("PATH");
};

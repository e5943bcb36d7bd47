#pragma once

#include <QDir>
#include <QString>
#include <QTemporaryDir>

// Runs a test body with the working directory inside a fresh temporary folder and restores the
// previous one afterwards, so relative paths ("log", "VKD64/...") land in the temporary folder.
class ScopedWorkingDir
{
public:
    ScopedWorkingDir() { QDir::setCurrent(m_dir.path()); }
    ~ScopedWorkingDir() { QDir::setCurrent(m_previous); }

    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
    QString m_previous = QDir::currentPath();
};

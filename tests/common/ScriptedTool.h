#pragma once

#include "TestFiles.h"
#include "ToolSearchPath.h"

#include <QCoreApplication>
#include <QDir>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

// A stand-in for an external program, copied into the application's folder (where the library looks
// first) for what the real tool cannot be made to do on demand. It is one small program of the
// suite's own, built for the platform under test, that follows a script of steps, one per start (the
// last step repeats), records the arguments and process id of every start and is removed when the
// object goes away. name: the tool's name without ".exe", which Windows gets added.
class ScriptedTool
{
public:
    struct Step
    {
        int exitCode = 0;
        QByteArray standardOutput;
        QByteArray standardError;
        int sleepMs = 0;
        QString heldFile; // kept open for reading while the step waits
    };

    ScriptedTool(const QString& name, const QVector<Step>& steps)
        : ScriptedTool(QCoreApplication::applicationDirPath(), name, steps)
    { }
    ScriptedTool(const QString& folder, const QString& name, const QVector<Step>& steps)
        : m_path(folder + '/' + name + ToolSearchPath::executableSuffix())
    {
        for (int i = 1; i <= steps.size(); ++i) {
            const Step& step = steps.at(i - 1);
            const QString base = m_state.filePath(QString::number(i));
            TestFiles::writeFile(base + ".out", step.standardOutput);
            TestFiles::writeFile(base + ".err", step.standardError);
            TestFiles::writeFile(
                base + ".plan", QByteArray::number(step.exitCode) + ' ' + QByteArray::number(step.sleepMs));
            TestFiles::writeFile(base + ".hold", step.heldFile.toUtf8());
        }
        TestFiles::writeFile(m_state.filePath("steps"), QByteArray::number(steps.size()));
        QFile::remove(m_path);
        QFile::copy(QStringLiteral(CORE_SCRIPTED_TOOL), m_path);
        TestFiles::writeFile(m_path + ".state", m_state.path().toUtf8());
    }
    ~ScriptedTool()
    {
        QFile::remove(m_path);
        QFile::remove(m_path + ".state");
    }
    ScriptedTool(const ScriptedTool&) = delete;
    ScriptedTool& operator=(const ScriptedTool&) = delete;

    QString path() const { return m_path; }
    int starts() const { return QDir(m_state.path()).entryList({ "start*" }, QDir::Files).size(); }
    QList<QStringList> arguments() const
    {
        QList<QStringList> all;
        for (int i = 1; i <= starts(); ++i)
            all.append(
                QString::fromUtf8(TestFiles::readFile(m_state.filePath(QStringLiteral("args%1").arg(i))))
                    .split('\n', Qt::SkipEmptyParts));
        return all;
    }
    // The process id of the n-th start (from 1), 0 before it has begun.
    qint64 processId(int start) const
    {
        return TestFiles::readFile(m_state.filePath(QStringLiteral("pid%1").arg(start))).toLongLong();
    }

private:
    QTemporaryDir m_state;
    QString m_path;
};

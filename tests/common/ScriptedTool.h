#pragma once

#include "TestFiles.h"

#include <QCoreApplication>
#include <QStringList>
#include <QTemporaryDir>
#include <QVector>

// A stand-in for an external program, written into the application's folder (where the library looks
// first) for what the real tool cannot be made to do on demand. It follows a script of steps, one per
// start (the last step repeats), records the arguments of every start and is removed when the object
// goes away.
class ScriptedTool
{
public:
    struct Step
    {
        int exitCode = 0;
        QByteArray standardOutput;
        QByteArray standardError;
        int sleepMs = 0;
    };

    ScriptedTool(const QString& name, const QVector<Step>& steps)
        : m_path(QCoreApplication::applicationDirPath() + '/' + name)
    {
        // Each start counts itself, keeps its arguments and plays its step: the n-th, or the last.
        QByteArray script = "#!/bin/sh\nd='" + m_state.path().toUtf8()
            + "'\nn=$(( $(cat \"$d/starts\" 2>/dev/null || echo 0) + 1 ))\necho $n > \"$d/starts\"\n"
              "printf '%s\\n' \"$@\" > \"$d/args$n\"\n"
              "s=$n; [ -f \"$d/out$s\" ] || s="
            + QByteArray::number(steps.size()) + "\ncat \"$d/out$s\"; cat \"$d/err$s\" >&2\ncase $s in\n";
        for (int i = 1; i <= steps.size(); ++i) {
            const Step& step = steps.at(i - 1);
            TestFiles::writeFile(m_state.filePath(QStringLiteral("out%1").arg(i)), step.standardOutput);
            TestFiles::writeFile(m_state.filePath(QStringLiteral("err%1").arg(i)), step.standardError);
            script += QByteArray::number(i) + ") sleep " + QByteArray::number(step.sleepMs / 1000.0, 'f', 3)
                + "; exit " + QByteArray::number(step.exitCode) + ";;\n";
        }
        TestFiles::writeFile(m_path, script + "esac\n");
        QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    ~ScriptedTool() { QFile::remove(m_path); }
    ScriptedTool(const ScriptedTool&) = delete;
    ScriptedTool& operator=(const ScriptedTool&) = delete;

    QString path() const { return m_path; }
    int starts() const { return TestFiles::readFile(m_state.filePath("starts")).trimmed().toInt(); }
    QList<QStringList> arguments() const
    {
        QList<QStringList> all;
        for (int i = 1; i <= starts(); ++i)
            all.append(
                QString::fromUtf8(TestFiles::readFile(m_state.filePath(QStringLiteral("args%1").arg(i))))
                    .split('\n', Qt::SkipEmptyParts));
        return all;
    }

private:
    QTemporaryDir m_state;
    QString m_path;
};

#include "ScriptedTool.h"

#include "TestFiles.h"

#include <QCoreApplication>

ScriptedTool::ScriptedTool(const QString& name, const QVector<Step>& steps)
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

ScriptedTool::~ScriptedTool()
{
    QFile::remove(m_path);
}

int ScriptedTool::starts() const
{
    return TestFiles::readFile(m_state.filePath("starts")).trimmed().toInt();
}

QList<QStringList> ScriptedTool::arguments() const
{
    QList<QStringList> all;
    for (int i = 1; i <= starts(); ++i)
        all.append(QString::fromUtf8(TestFiles::readFile(m_state.filePath(QStringLiteral("args%1").arg(i))))
                       .split('\n', Qt::SkipEmptyParts));
    return all;
}

#include "ScriptedTool.h"

#include "TestFiles.h"

#include <QCoreApplication>
#include <QFile>

ScriptedTool::ScriptedTool(const QString& name, const QVector<Step>& steps)
    : m_path(QCoreApplication::applicationDirPath() + QLatin1Char('/') + name)
{
    const QString state = m_state.path();
    for (int i = 0; i < steps.size(); ++i) {
        const QString step = state + QStringLiteral("/step%1").arg(i + 1);
        TestFiles::writeFile(step + QStringLiteral(".code"), QByteArray::number(steps[i].exitCode));
        TestFiles::writeFile(step + QStringLiteral(".out"), steps[i].standardOutput);
        TestFiles::writeFile(step + QStringLiteral(".err"), steps[i].standardError);
        TestFiles::writeFile(
            step + QStringLiteral(".sleep"), QByteArray::number(steps[i].sleepMs / 1000.0, 'f', 3));
    }
    const QByteArray script = QByteArrayLiteral("#!/bin/sh\n"
                                                "d='")
        + state.toUtf8()
        + QByteArrayLiteral("'\n"
                            "n=$(( $(cat \"$d/starts\" 2>/dev/null || echo 0) + 1 ))\n"
                            "echo $n > \"$d/starts\"\n"
                            "printf '%s\\n' \"$@\" > \"$d/args$n\"\n"
                            "s=$n; [ -f \"$d/step$s.code\" ] || s=")
        + QByteArray::number(steps.size())
        + QByteArrayLiteral("\n"
                            "cat \"$d/step$s.out\"\n"
                            "cat \"$d/step$s.err\" >&2\n"
                            "sleep \"$(cat \"$d/step$s.sleep\")\"\n"
                            "exit \"$(cat \"$d/step$s.code\")\"\n");
    TestFiles::writeFile(m_path, script);
    QFile::setPermissions(m_path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

ScriptedTool::~ScriptedTool()
{
    QFile::remove(m_path);
}

int ScriptedTool::starts() const
{
    return TestFiles::readFile(m_state.path() + QStringLiteral("/starts")).trimmed().toInt();
}

QList<QStringList> ScriptedTool::arguments() const
{
    QList<QStringList> all;
    for (int i = 1; i <= starts(); ++i) {
        const QString text
            = QString::fromUtf8(TestFiles::readFile(m_state.path() + QStringLiteral("/args%1").arg(i)));
        all.append(text.split(QLatin1Char('\n'), Qt::SkipEmptyParts));
    }
    return all;
}

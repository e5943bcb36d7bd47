#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
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

    ScriptedTool(const QString& name, const QVector<Step>& steps);
    ~ScriptedTool();
    ScriptedTool(const ScriptedTool&) = delete;
    ScriptedTool& operator=(const ScriptedTool&) = delete;

    QString path() const { return m_path; }
    int starts() const;
    QList<QStringList> arguments() const;

private:
    QTemporaryDir m_state;
    QString m_path;
};

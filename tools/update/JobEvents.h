#pragma once

#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

// What the update job tells its renderers. The job fills these records and prints nothing; a
// renderer turns them into text for a person or a program.

enum class Stage
{
    Settings, // reading the settings and the install folder
    Lock, // taking the install folder for this run
    Record, // writing the settings: the version reached, the work pending
    Server, // fetching the server's documents
    Plan, // deciding what to do; a server document refused
    Trust, // the signed channel: its list, and each document and package against it
    Space, // free space against what a step needs
    Download,
    VerifyPackage,
    Unpack,
    Check, // no game file in use
    Merge,
    Swap, // a full package unpacked beside the game put in its place
    VerifyGame,
    RepairDownload,
    RepairCopy,
};

// The stage's name in progress lines and JSON objects.
QString StageName(Stage stage);

struct StageEvent
{
    Stage stage = Stage::Settings;
    int step = 0; // step of a patch chain, from 1; 0 outside a chain
    int steps = 0;
    QString detail; // what the stage works on: a version step, an archive, a file count
};

struct ProgressEvent
{
    Stage stage = Stage::Settings;
    int step = 0;
    int steps = 0;
    double fraction = 0.0; // 0 to 1
    qint64 doneBytes = -1; // -1 where the stage has no byte count
    qint64 totalBytes = -1;
    qint64 bytesPerSecond = -1;
    int secondsLeft = -1;
};

// How the job ended: the stage it ended in and that stage's own record, reduced to a code and a text.
// ExitCodeFor maps it to the program's exit code.
struct StageResult
{
    Stage stage = Stage::Settings;
    bool bFailed = false;
    bool bInterrupted = false;
    int code = 0; // the stage record's code: download error code, unpacker code, failed file count
    QString text; // for the user
    QString path; // the file the failure is about, when there is one
};

enum class Outcome
{
    Installed,
    Updated,
    UpToDate,
    InstalledNewer,
    Verified,
    Repaired,
    Planned, // --dry-run
    Failed,
};

QString OutcomeName(Outcome outcome);

struct JobSummary
{
    Outcome outcome = Outcome::Failed;
    QString installedVersion; // before the job
    QString version; // after the job (or planned)
    qint64 downloadedBytes = 0;
    qint64 fullPackageBytes = 0;
    QStringList repairedFiles;
    QString message; // one line for the user
};

// One step of a plan with the disk space it needs at its peak.
struct PlanStep
{
    QString from; // empty for a full install
    QString to;
    qint64 downloadBytes = 0;
    qint64 cacheBytes = 0; // peak need on the cache's volume
    qint64 gameBytes = 0; // peak need on the game folder's volume
};

struct UpdatePlan
{
    QString action; // "full install", "patch chain", "repair"
    QString installedVersion;
    QString newestVersion;
    QVector<PlanStep> steps;
    qint64 downloadBytes = 0;
    qint64 fullPackageBytes = 0;
    QStringList files; // the files a repair would fetch
};

Q_DECLARE_METATYPE(StageEvent)
Q_DECLARE_METATYPE(ProgressEvent)
Q_DECLARE_METATYPE(StageResult)
Q_DECLARE_METATYPE(JobSummary)
Q_DECLARE_METATYPE(UpdatePlan)

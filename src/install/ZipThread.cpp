#include "install/ZipThread.h"

#include "files/QFileUtils.h"
#include "install/ExternalTools.h"
#include "install/SevenZipOutput.h"
#include "install/ToolRunner.h"
#include "log/Logger.h"

#include <QDebug>
#include <QDir>

namespace {

const QString kTag = QStringLiteral("ZipThread");

} // namespace

ZipThread::ZipThread(QObject* parent)
    : QThread(parent)
{
    connect(this, &QThread::finished, this, &ZipThread::finishedThread);
}

void ZipThread::run()
{
    if (m_fileList.isEmpty())
        return;
    if (m_unZipFolder.trimmed().isEmpty()) {
        Fail(m_fileList.first(), SevenZipOutput::kFatalError,
            SevenZipOutput::UnsafeDestinationText(m_unZipFolder));
        return;
    }
    // Looked up before anything is deleted: without the tool the old files are better than none.
    const QString toolPath = ExternalTools::SevenZipPath();
    if (toolPath.isEmpty()) {
        Fail(m_fileList.first(), SevenZipOutput::kFatalError,
            ExternalTools::MissingToolText(QStringLiteral("7z")));
        return;
    }
    // A full unpack starts from an empty folder; the repair kinds unpack over what is there.
    if (!m_bRepair && !ClearDestination())
        return;
    for (int i = 0; i < m_fileList.size(); ++i) {
        if (isInterruptionRequested()) {
            Fail(m_fileList.at(i), SevenZipOutput::kUserStopped,
                SevenZipOutput::MeaningOfExitCode(SevenZipOutput::kUserStopped, 0).text);
            return;
        }
        if (!DecompressFile(i, m_fileList.at(i), m_unZipFolder, toolPath))
            return;
    }
}

bool ZipThread::IsDeletableFolder(const QString& folder)
{
    if (folder.trimmed().isEmpty())
        return false;
    return !QDir(QDir::cleanPath(QDir(folder).absolutePath())).isRoot();
}

bool ZipThread::ClearDestination()
{
    if (!IsDeletableFolder(m_unZipFolder)) {
        Logger::LogInfo(kTag, QStringLiteral("refuse to delete unzip folder %1").arg(m_unZipFolder));
        return Fail(m_fileList.first(), SevenZipOutput::kFatalError,
            SevenZipOutput::UnsafeDestinationText(m_unZipFolder));
    }
    QFileUtils::DeleteFileOrFolder(m_unZipFolder);
    return true;
}

bool ZipThread::DecompressFile(
    int index, const QString& archive, const QString& folder, const QString& toolPath)
{
    Logger::LogInfo(
        kTag, QStringLiteral("start unzip file, file is %1, unzip folder is %2").arg(archive, folder));
    Logger::LogInfo(QStringLiteral("Zipthread"), QStringLiteral("exepath is %1").arg(toolPath));

    ToolRunner::Request request;
    request.program = toolPath;
    request.arguments = QStringList { QStringLiteral("x"), QStringLiteral("-bsp1"), QStringLiteral("-y"),
        QStringLiteral("-o") + folder, archive };
    request.pollMs = 10;
    request.onOutput = [this, index](const QByteArray& burst) { ReportOutput(index, burst); };
    const ToolRunner::Result result = ToolRunner::Run(request);

    switch (result.outcome) {
    case ToolRunner::Outcome::FailedToStart:
        return Fail(archive, SevenZipOutput::kFatalError, SevenZipOutput::NotStartedText(result.startError));
    case ToolRunner::Outcome::Crashed:
        return Fail(archive, SevenZipOutput::kFatalError, SevenZipOutput::CrashedText());
    case ToolRunner::Outcome::Cancelled:
    case ToolRunner::Outcome::TimedOut:
        return Fail(archive, SevenZipOutput::kUserStopped,
            SevenZipOutput::MeaningOfExitCode(SevenZipOutput::kUserStopped, 0).text);
    case ToolRunner::Outcome::Finished:
        break;
    }

    const QString rest = ToolRunner::DecodeToolText(result.remainingOutput);
    if (!rest.isEmpty())
        Logger::LogInfo(kTag, QStringLiteral("DecompressFile:output is %1").arg(rest));
    Logger::LogInfo(kTag, QStringLiteral("DecompressFile: exit code is %1").arg(result.exitCode));
    m_exitCode = result.exitCode;

    const QString rawError = ToolRunner::DecodeToolText(result.standardError);
    m_errStr = QDir::fromNativeSeparators(rawError).simplified();
    qDebug() << rawError;
    const int crcPos = m_errStr.indexOf(QLatin1String("CRC Failed"));
    qDebug() << "crc failed" << crcPos;

    if (m_exitCode == 0) {
        Logger::LogInfo(kTag, QStringLiteral("Unzip %1 Success").arg(archive));
        return true;
    }
    if (crcPos >= 0) {
        // Damaged files are left for the verifier and a repair; the rest of the package is still good.
        qDebug() << "ignore crc failed" << m_errStr;
        m_exitCode = 0;
        return true;
    }
    // A player gets words to act on even from a tool that ended without a message.
    return Fail(archive, m_exitCode,
        m_errStr.isEmpty() ? SevenZipOutput::MeaningOfExitCode(m_exitCode, 0).text : m_errStr);
}

void ZipThread::ReportOutput(int index, const QByteArray& burst)
{
    const QString output = ToolRunner::DecodeToolText(burst);
    const int percent = SevenZipOutput::PercentOf(output);
    Logger::LogInfo(
        kTag, QStringLiteral("DecompressFile:percent is %1, output is %2").arg(percent).arg(output));
    if (percent >= 0)
        emit DecompressProgress(percent, index, m_fileList.size());
}

bool ZipThread::Fail(const QString& archive, int exitCode, const QString& errStr)
{
    m_exitCode = exitCode;
    m_errStr = errStr;
    Logger::LogInfo(kTag, QStringLiteral("Unzip %1 Failed").arg(archive));
    Logger::LogInfo(kTag, QStringLiteral("DecompressFile: error is %1").arg(errStr));
    return false;
}

void ZipThread::finishedThread()
{
    Logger::LogInfo(kTag, QStringLiteral("finishedThread"));
    emit DecompressFinished(m_exitCode, m_errStr);
}

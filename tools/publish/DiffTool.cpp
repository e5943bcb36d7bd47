#include "DiffTool.h"

#include "delta/Encoder.h"
#include "delta/FilePatch.h"

#include <QFile>

namespace Publish {

namespace {

// The engine takes UTF-8 paths on Windows and the file system's own bytes elsewhere.
std::string enginePath(const QString& path)
{
#ifdef Q_OS_WIN
    return path.toStdString();
#else
    return QFile::encodeName(path).toStdString();
#endif
}

Outcome outcomeOf(const Delta::Result& result, const QString& what)
{
    if (result.ok())
        return {};
    const ExitCode code
        = result.status == Delta::Status::DiskFull ? ExitCode::OutputFailed : ExitCode::ToolFailed;
    return Outcome::Failure(
        code, QStringLiteral("cannot %1: %2").arg(what, QString::fromStdString(result.message)));
}

} // namespace

DiffTool::DiffTool(qint64 memoryBudget)
    : m_memoryBudget(memoryBudget)
{ }

Outcome DiffTool::encode(const QString& oldFile, const QString& newFile, const QString& diffFile) const
{
    Delta::EncodeOptions options;
    options.memoryBudget = quint64(m_memoryBudget);
    return outcomeOf(
        Delta::Encoder(options).encode(enginePath(oldFile), enginePath(newFile), enginePath(diffFile)),
        QStringLiteral("make the diff for %1").arg(newFile));
}

Outcome DiffTool::decode(const QString& oldFile, const QString& diffFile, const QString& outFile) const
{
    Delta::ApplyRequest request;
    request.oldPath = enginePath(oldFile);
    request.diffPath = enginePath(diffFile);
    request.outPath = enginePath(outFile);
    request.overwrite = true;
    return outcomeOf(Delta::ApplyDiffFile(request), QStringLiteral("apply the diff %1").arg(diffFile));
}

} // namespace Publish

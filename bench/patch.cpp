// Applies a package of diffs to a game folder through the patch stage and, in the same run, by bare
// hpatchz calls, and prints the times and ratios. The diffs are made by the diff engine. The stage patches in
// place and makes every new file durable before it replaces the old one; the next file's diff runs while the
// current one is applied. Its peer is the least any in-place patch does: bare calls that write each new file
// beside the old one and rename it over. For reference, the same bare calls writing into an empty folder,
// which replace nothing, and the bare calls that also flush each file before the rename, as the stage does.
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/PatchComponent.h"
#include "delta/Encoder.h"
#include "files/QFileUtils.h"
#include "install/PatchInfo.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>

#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using namespace Morvantix;

namespace {

QString fileName(int i)
{
    return QStringLiteral("Paks/pak%1.pak").arg(i, 2, 10, QLatin1Char('0'));
}

bool run(const QString& program, const QStringList& arguments)
{
    return QProcess::execute(program, arguments) == 0;
}

bool writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

QByteArray randomBytes(int size, quint32 seed)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator(seed).fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
}

// Old files, their new versions and the package: a new version replaces eight 256 KB regions of
// its old file and inserts one more, like a content patch of a game archive.
bool makeData(const QString& data, int files, int fileMb)
{
    PatchInfo info;
    for (int i = 0; i < files; ++i) {
        const QByteArray old = randomBytes(fileMb * 1000000, quint32(i + 1));
        QByteArray changed = old;
        for (int r = 0; r < 8; ++r)
            changed.replace(
                r * (old.size() / 8) + 4096, 256 * 1024, randomBytes(256 * 1024, quint32(1000 + i * 10 + r)));
        changed.insert(old.size() / 3, randomBytes(256 * 1024, quint32(5000 + i)));
        const QString oldPath = data + QStringLiteral("/old/") + fileName(i);
        const QString newPath = data + QStringLiteral("/new/") + fileName(i);
        const QString diffPath = data + QStringLiteral("/pkg/") + fileName(i) + QStringLiteral(".patch");
        QDir().mkpath(QFileInfo(diffPath).absolutePath());
        if (!writeFile(oldPath, old) || !writeFile(newPath, changed)
            || !Delta::Encoder({})
                    .encode(QFile::encodeName(oldPath).toStdString(),
                        QFile::encodeName(newPath).toStdString(), QFile::encodeName(diffPath).toStdString())
                    .ok())
            return false;
        const QString name = fileName(i) + QStringLiteral(".patch");
        info.patchFiles.insert(name, { name, QString(), 0 });
    }
    return writeFile(data + QStringLiteral("/pkg/manifest.txt"), WritePatchInfo(info).toUtf8());
}

// A fresh game folder of hard links to the old files: patching in place renames each new file over
// its link, so the old files stay as they are for the next round. The files of the previous
// contender are deleted, so their unwritten pages are dropped rather than written during the next.
void reset(const QString& data)
{
    QDir(data + QStringLiteral("/game")).removeRecursively();
    QDir(data + QStringLiteral("/bare")).removeRecursively();
    run(QStringLiteral("cp"), { "-al", data + QStringLiteral("/old"), data + QStringLiteral("/game") });
    QDir().mkpath(data + QStringLiteral("/bare/Paks"));
}

enum class Bare
{
    EmptyFolder, // read the old files, write into the empty folder "bare"
    InPlace, // patch the game folder, each output renamed over its old file
    InPlaceFlushed, // the same, each output flushed to disk before the rename, as the stage does
};

double bareSeconds(const QString& data, int files, Bare mode)
{
    const bool inPlace = mode != Bare::EmptyFolder;
    const QString from = data + (inPlace ? QStringLiteral("/game/") : QStringLiteral("/old/"));
    const QString to = data + (inPlace ? QStringLiteral("/game/") : QStringLiteral("/bare/"));
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < files; ++i) {
        const QString out = to + fileName(i) + (inPlace ? QStringLiteral(".new") : QString());
        run(QStringLiteral("hpatchz"),
            { from + fileName(i), data + QStringLiteral("/pkg/") + fileName(i) + QStringLiteral(".patch"),
                out, "-f", "-s-1m" });
        if (mode == Bare::InPlaceFlushed) {
            const int fd = ::open(QFile::encodeName(out).constData(), O_RDONLY);
            ::fsync(fd);
            ::close(fd);
        }
        if (inPlace)
            std::rename(
                QFile::encodeName(out).constData(), QFile::encodeName(from + fileName(i)).constData());
    }
    return timer.nsecsElapsed() / 1e9;
}

double stageSeconds(const QString& data, QString& error)
{
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_bLimitSpeed = true;
    ctx->m_patchFolder = data + QStringLiteral("/pkg");
    ctx->m_mergeTargetPath = data + QStringLiteral("/game");
    ctx->m_mergeTempPath = data + QStringLiteral("/temp");
    QEventLoop loop;
    GetPatchComponent()->RegistCallbackFunc([&](PatcherCallbackInfo& info) {
        if (info.bComplete || info.bError) {
            error = info.errorString;
            loop.quit();
        }
    });
    QElapsedTimer timer;
    timer.start();
    GetPatchComponent()->StartApplyPatch(*ctx);
    loop.exec();
    return timer.nsecsElapsed() / 1e9;
}

bool sameFiles(const QString& a, const QString& b, int files)
{
    for (int i = 0; i < files; ++i) {
        if (QFileUtils::GetFileMD5(a + fileName(i)) != QFileUtils::GetFileMD5(b + fileName(i)))
            return false;
    }
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The stage's log lines would otherwise be timed along with it.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    if (argc < 2) {
        std::fprintf(stderr, "usage: patch <data folder> [files] [MB per file] [rounds]\n");
        return 2;
    }
    const QString data = QString::fromLocal8Bit(argv[1]);
    const int files = argc > 2 ? QByteArray(argv[2]).toInt() : 20;
    const int fileMb = argc > 3 ? QByteArray(argv[3]).toInt() : 30;
    const int rounds = argc > 4 ? QByteArray(argv[4]).toInt() : 3;
    if (!makeData(data, files, fileMb)) {
        std::fprintf(stderr, "patch: cannot make the data in %s\n", argv[1]);
        return 1;
    }

    // Best of the rounds: the machine is shared, and interference only ever adds time.
    double stage = 1e30, bare = 1e30, bareEmpty = 1e30, bareFlushed = 1e30;
    for (int round = 0; round < rounds; ++round) {
        reset(data);
        bare = qMin(bare, bareSeconds(data, files, Bare::InPlace));
        reset(data);
        bareEmpty = qMin(bareEmpty, bareSeconds(data, files, Bare::EmptyFolder));
        reset(data);
        bareFlushed = qMin(bareFlushed, bareSeconds(data, files, Bare::InPlaceFlushed));
        reset(data);
        QString error;
        stage = qMin(stage, stageSeconds(data, error));
        if (!error.isEmpty()
            || !sameFiles(data + QStringLiteral("/game/"), data + QStringLiteral("/new/"), files)) {
            std::fprintf(stderr, "patch: the stage did not produce the new files: %s\n", qPrintable(error));
            return 1;
        }
    }
    const double mb = files * fileMb;
    std::printf("%d diffs over %.0f MB of old files, best of %d rounds\n", files, mb, rounds);
    std::printf("  bare hpatchz,      in place        %7.3f s  %7.1f MB/s\n", bare, mb / bare);
    std::printf("  bare hpatchz,      empty folder    %7.3f s  %7.1f MB/s\n", bareEmpty, mb / bareEmpty);
    std::printf("  bare hpatchz,      in place, fsync %7.3f s  %7.1f MB/s\n", bareFlushed, mb / bareFlushed);
    std::printf("  patch stage (hpatchz), in place  %7.3f s  %7.1f MB/s\n", stage, mb / stage);
    std::printf("  ratio stage / bare in place      %.3fx\n", stage / bare);
    std::printf("  ratio stage / bare empty folder  %.3fx\n", stage / bareEmpty);
    std::printf("  ratio stage / bare in place, fsync %.3fx\n", stage / bareFlushed);
    return 0;
}

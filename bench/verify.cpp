// The verifier driven through its callback, against md5sum measured in the same run:
//   verify generate <dir>                 makes a 1 GiB archive and a tree of 20,000 small files
//                                         plus ten of 64 MiB, with its lists in both formats
//   verify archive <file> <runs>          archive mode against "md5sum <file>", with peak memory
//   verify manifest <dir> <runs>          manifest mode by MD5 against "md5sum -c", with peak memory,
//                                         and by size only
#include "ProcessStatus.h"

#include "core/GameUpdateContext.h"
#include "install/Verifyer.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>

#include <cstdio>
#include <cstring>
#include <functional>

using Morvantix::GameUpdateContext;
using Morvantix::VerifyCallbackInfo;

namespace {

constexpr int kSmallFiles = 20000;
constexpr int kBigFiles = 10;
constexpr qint64 kBigSize = 64 << 20;

double secondsOf(const std::function<bool()>& work)
{
    QElapsedTimer timer;
    timer.start();
    return work() ? timer.nsecsElapsed() / 1e9 : -1;
}

// Best of `runs` for each side, the two taking turns so that a change of load on a shared machine
// hits both alike.
QPair<double, double> bestOfTurns(
    int runs, const std::function<bool()>& peer, const std::function<bool()>& ours)
{
    double bestPeer = 1e30;
    double bestOurs = 1e30;
    for (int i = 0; i < runs; ++i) {
        const double p = secondsOf(peer);
        const double o = secondsOf(ours);
        if (p < 0 || o < 0)
            return { p, o };
        bestPeer = qMin(bestPeer, p);
        bestOurs = qMin(bestOurs, o);
    }
    return { bestPeer, bestOurs };
}

bool runMd5sum(const QStringList& arguments, const QString& workingDir)
{
    QProcess md5sum;
    md5sum.setWorkingDirectory(workingDir);
    md5sum.setStandardOutputFile(QProcess::nullDevice());
    md5sum.start(QStringLiteral("md5sum"), arguments);
    return md5sum.waitForFinished(-1) && md5sum.exitStatus() == QProcess::NormalExit
        && md5sum.exitCode() == 0;
}

// One job from the start call to the completion report; false when the job reports an error.
bool runVerifyer(GameUpdateContext& ctx)
{
    QEventLoop loop;
    bool bError = true;
    Verifyer::GetInstance()->RegistCallbackFunc([&](VerifyCallbackInfo& info) {
        if (info.bComplete) {
            bError = info.bError;
            loop.quit();
        }
    });
    Verifyer::GetInstance()->StartVerify(ctx);
    loop.exec();
    Verifyer::GetInstance()->RegistCallbackFunc(nullptr);
    return !bError;
}

QByteArray randomBytes(qint64 size, quint64& state)
{
    QByteArray data(int(size), Qt::Uninitialized);
    for (qint64 i = 0; i < size; i += 8) {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        memcpy(data.data() + i, &state, size_t(qMin<qint64>(8, size - i)));
    }
    return data;
}

bool writeListed(const QDir& root, const QString& relative, const QByteArray& data, QByteArray& md5sumList,
    QByteArray& fileList)
{
    const QString path = root.filePath(relative);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return false;
    const QByteArray md5 = QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex();
    md5sumList += md5 + "  " + relative.toUtf8() + '\n';
    fileList += relative.toUtf8() + '|' + md5 + '|' + QByteArray::number(data.size()) + '\n';
    return true;
}

int generate(const QDir& dir)
{
    quint64 state = 0x9E3779B97F4A7C15ull;
    QFile archive(dir.filePath(QStringLiteral("archive-1GiB.bin")));
    if (!archive.open(QIODevice::WriteOnly))
        return 1;
    for (int i = 0; i < 64; ++i)
        archive.write(randomBytes(16 << 20, state));
    archive.close();

    const QDir tree(dir.filePath(QStringLiteral("tree")));
    QByteArray md5sumList;
    QByteArray fileList;
    for (int i = 0; i < kSmallFiles; ++i) {
        const qint64 size = 1024 + qint64(state % (63 * 1024 + 1));
        const QString name = QStringLiteral("d%1/f%2.bin").arg(i / 200, 3, 10, QLatin1Char('0')).arg(i);
        if (!writeListed(tree, name, randomBytes(size, state), md5sumList, fileList))
            return 1;
    }
    QByteArray smallList = fileList;
    for (int i = 0; i < kBigFiles; ++i) {
        if (!writeListed(tree, QStringLiteral("big/b%1.bin").arg(i), randomBytes(kBigSize, state), md5sumList,
                fileList))
            return 1;
    }
    const auto save = [&](const QString& name, const QByteArray& text) {
        QFile file(dir.filePath(name));
        return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
    };
    return save(QStringLiteral("tree.md5"), md5sumList) && save(QStringLiteral("tree.list"), fileList)
            && save(QStringLiteral("small.list"), smallList)
        ? 0
        : 1;
}

int benchArchive(const QString& path, int runs)
{
    const double mb = QFileInfo(path).size() / 1e6;
    const QString md5 = [&] {
        QProcess md5sum;
        md5sum.start(QStringLiteral("md5sum"), { path });
        md5sum.waitForFinished(-1);
        return QString::fromLatin1(md5sum.readAllStandardOutput().left(32));
    }();
    GameUpdateContext ctx;
    ctx.m_bVerifyZip = true;
    ctx.m_archiveFileList = QStringList { path };
    ctx.m_archiveMd5List = QStringList { md5 };

    runVerifyer(ctx); // the worker thread and its first buffers, outside the measurement
    const qint64 peakBefore = peakResidentKb();
    const auto [peer, ours] = bestOfTurns(
        runs, [&] { return runMd5sum({ path }, QDir::currentPath()); }, [&] { return runVerifyer(ctx); });
    const qint64 peakAfter = peakResidentKb();

    std::printf("archive mode, %.0f MB archive, best of %d turns, warm page cache\n", mb, runs);
    std::printf("  md5sum             %7.3f s  %7.1f MB/s\n", peer, mb / peer);
    std::printf("  Verifyer           %7.3f s  %7.1f MB/s  ratio to md5sum %.2fx %s\n", ours, mb / ours,
        peer / ours, ours < 0 ? "(FAILED)" : "");
    std::printf("  peak RSS %lld KiB before the measured runs, %lld KiB after (growth %lld KiB)\n",
        peakBefore, peakAfter, peakAfter - peakBefore);
    return ours > 0 ? 0 : 1;
}

int benchManifest(const QDir& dir, int runs)
{
    const QString tree = dir.filePath(QStringLiteral("tree"));
    const auto read = [&](const QString& name) {
        QFile file(dir.filePath(name));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
    };
    GameUpdateContext ctx;
    ctx.m_installPath = tree;
    ctx.m_manifestContent = read(QStringLiteral("tree.list"));
    ctx.m_bMd5Verify = true;

    runVerifyer(ctx); // the worker threads and their buffers, outside the measurement
    const qint64 peakBefore = peakResidentKb();
    const auto [peer, ours] = bestOfTurns(
        runs,
        [&] {
            return runMd5sum({ "-c", dir.absoluteFilePath("tree.md5") }, tree);
        },
        [&] { return runVerifyer(ctx); });
    std::printf("manifest mode by MD5, %d files of 1-64 KiB and %d of 64 MiB, best of %d turns\n",
        kSmallFiles, kBigFiles, runs);
    std::printf("  md5sum -c          %7.3f s\n", peer);
    std::printf("  Verifyer           %7.3f s  ratio to md5sum -c %.2fx %s\n", ours, peer / ours,
        ours < 0 ? "(FAILED)" : "");
    const qint64 peakAfter = peakResidentKb();
    std::printf("  peak RSS %lld KiB before the measured runs, %lld KiB after (growth %lld KiB)\n",
        peakBefore, peakAfter, peakAfter - peakBefore);

    ctx.m_manifestContent = read(QStringLiteral("small.list"));
    ctx.m_bMd5Verify = false;
    double sizes = 1e30;
    for (int i = 0; i < runs; ++i)
        sizes = qMin(sizes, secondsOf([&] { return runVerifyer(ctx); }));
    std::printf("manifest mode by size, the %d small files: %.3f s (goal under 0.5 s) %s\n", kSmallFiles,
        sizes, sizes < 0 ? "(FAILED)" : "");
    return ours > 0 && sizes > 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // Every checked file writes a log line; the figures are the verifier's, not the log sink's.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    const QStringList args = app.arguments();
    const QString command = args.value(1);
    const int runs = qMax(1, args.value(3).toInt());
    if (command == QLatin1String("generate") && args.size() == 3)
        return generate(QDir(args.at(2)));
    if (command == QLatin1String("archive") && args.size() >= 3)
        return benchArchive(args.at(2), runs);
    if (command == QLatin1String("manifest") && args.size() >= 3)
        return benchManifest(QDir(args.at(2)), runs);
    std::fprintf(stderr, "usage: verify generate <dir> | archive <file> [runs] | manifest <dir> [runs]\n");
    return 2;
}

// Host program of the unpack benchmark.
//
//   unzip generate <dir>                 writes a game-like tree: large paks, many small files
//   unzip run <archive> <work-dir> <rounds>
//
// "run" unpacks the archive through the unzip component, the way the launcher does, and with the
// bare 7-Zip program, interleaved in the same run, and prints the medians of wall time, the tool's
// CPU time and this process's own CPU time during the stage (the poll loop, the logging, the reports).
#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/GlobalVar.h"
#include "core/UnZipComponent.h"
#include "log/Logger.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <functional>

using namespace Morvantix;

namespace {

// Reproducible bytes: random blocks (already compressed assets), blocks from a 16-letter alphabet
// (structured data) and nearly constant blocks (padding, zeroed tables).
class GameBytes
{
public:
    explicit GameBytes(quint64 seed)
        : m_state(seed * 0x9E3779B97F4A7C15ull + 1)
    { }
    QByteArray block(int size)
    {
        QByteArray data(size, Qt::Uninitialized);
        const quint64 kind = next() % 10;
        for (int i = 0; i < size; i += 8) {
            quint64 word = next();
            if (kind >= 4 && kind < 7)
                word = (word & 0x0F0F0F0F0F0F0F0Full) | 0x4040404040404040ull;
            else if (kind >= 7)
                word = (next() % 64 == 0) ? word : 0x2020202020202020ull;
            memcpy(data.data() + i, &word, std::min(8, size - i));
        }
        return data;
    }

private:
    quint64 next()
    {
        m_state ^= m_state << 13;
        m_state ^= m_state >> 7;
        m_state ^= m_state << 17;
        return m_state;
    }
    quint64 m_state;
};

bool writeGenerated(const QString& path, qint64 size, GameBytes& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    for (qint64 done = 0; done < size;) {
        const int chunk = int(std::min<qint64>(64 * 1024, size - done));
        if (file.write(bytes.block(chunk)) != chunk)
            return false;
        done += chunk;
    }
    return true;
}

int generate(const QString& dir)
{
    GameBytes bytes(7);
    for (int i = 0; i < 12; ++i) {
        if (!writeGenerated(QStringLiteral("%1/Data/pak%2.pak").arg(dir).arg(i), 64ll << 20, bytes))
            return 1;
    }
    for (int i = 0; i < 4000; ++i) {
        const QString path = QStringLiteral("%1/Data/Config/%2/item%3.cfg").arg(dir).arg(i % 40).arg(i);
        if (!writeGenerated(path, 1024 + (i * 7919) % (31 * 1024), bytes))
            return 1;
    }
    return 0;
}

struct Sample
{
    double wall = 0;
    double toolCpu = 0;
    double ownCpu = 0;
    qint64 bytes = 0; // of the unpacked tree
    int files = 0;
};

double seconds(const timeval& t)
{
    return t.tv_sec + t.tv_usec / 1e6;
}

double cpuOf(int who)
{
    rusage usage {};
    getrusage(who, &usage);
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

QPair<qint64, int> treeSize(const QString& folder)
{
    qint64 bytes = 0;
    int files = 0;
    for (QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories); it.hasNext();) {
        it.next();
        bytes += it.fileInfo().size();
        ++files;
    }
    return { bytes, files };
}

// Times one unpack into a folder that does not exist yet, then measures and deletes what was
// unpacked. Every run starts from the same state: the previous run's tree just deleted, the disk
// flushed and left to settle.
Sample measure(const QString& folder, const std::function<bool()>& unpack)
{
    sync();
    sleep(2);
    const double self = cpuOf(RUSAGE_SELF);
    const double children = cpuOf(RUSAGE_CHILDREN);
    QElapsedTimer clock;
    clock.start();
    if (!unpack()) {
        std::fprintf(stderr, "unzip bench: unpack into %s failed\n", qPrintable(folder));
        exit(1);
    }
    Sample sample { clock.nsecsElapsed() / 1e9, cpuOf(RUSAGE_CHILDREN) - children,
        cpuOf(RUSAGE_SELF) - self };
    const QPair<qint64, int> tree = treeSize(folder);
    sample.bytes = tree.first;
    sample.files = tree.second;
    QDir(folder).removeRecursively();
    return sample;
}

QStringList toolArguments(const QString& archive, const QString& folder)
{
    return { QStringLiteral("x"), QStringLiteral("-bsp1"), QStringLiteral("-y"),
        QStringLiteral("-o") + folder, archive };
}

bool unpackBare(const QString& archive, const QString& folder)
{
    QProcess tool;
    tool.setStandardOutputFile(QProcess::nullDevice());
    tool.start(QStandardPaths::findExecutable(QStringLiteral("7zz")), toolArguments(archive, folder));
    return tool.waitForFinished(-1) && tool.exitStatus() == QProcess::NormalExit && tool.exitCode() == 0;
}

int s_progressReports = 0;

bool unpackThroughStage(const QString& archive, const QString& folder)
{
    QEventLoop loop;
    int code = -1;
    GetUnZipComponent()->RegistCallbackFunc([&](UnZipCallbackInfo& info) {
        if (!info.bComplete) {
            ++s_progressReports;
            return;
        }
        code = info.code;
        loop.quit();
    });
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_unZipFileList = QStringList { archive };
    ctx->m_unZipFolder = folder;
    ctx->m_updateType = UpdateType::Update;
    GetUnZipComponent()->StartUnZip(*ctx);
    loop.exec();
    return code == 0;
}

double median(QVector<double> values)
{
    std::sort(values.begin(), values.end());
    const int mid = values.size() / 2;
    return values.size() % 2 ? values.at(mid) : (values.at(mid - 1) + values.at(mid)) / 2;
}

int run(const QString& archive, const QString& work, int rounds)
{
    // The launcher writes its log file while it unpacks, and has no console; so it is here.
    QDir::setCurrent(work);
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
    Global::Var::bLog = true;
    Logger::LogToFile(true);
    // The registry, the workers and the log file are made once per process, not per unpack.
    GetUnZipComponent();
    Logger::LogInfo(QStringLiteral("UnzipBench"), QStringLiteral("archive %1").arg(archive));

    const QString bareFolder = work + QStringLiteral("/out-bare");
    const QString stageFolder = work + QStringLiteral("/out-stage");
    QVector<Sample> bare;
    QVector<Sample> stage;
    for (int round = 0; round < rounds; ++round) {
        // Alternating which side goes first spreads any drift of the machine over both.
        for (int side = 0; side < 2; ++side) {
            if ((round + side) % 2 == 0)
                bare.append(measure(bareFolder, [&] { return unpackBare(archive, bareFolder); }));
            else
                stage.append(measure(stageFolder, [&] { return unpackThroughStage(archive, stageFolder); }));
        }
        std::printf(
            "round %d: bare %.2f s (tool CPU %.2f s), stage %.2f s (tool CPU %.2f s, own CPU %.3f s)\n",
            round + 1, bare.last().wall, bare.last().toolCpu, stage.last().wall, stage.last().toolCpu,
            stage.last().ownCpu);
    }
    const auto column = [](const QVector<Sample>& samples, double Sample::*field) {
        QVector<double> values;
        for (const Sample& sample : samples)
            values.append(sample.*field);
        return median(values);
    };

    const double bareWall = column(bare, &Sample::wall);
    const double stageWall = column(stage, &Sample::wall);
    const double stageTool = column(stage, &Sample::toolCpu);
    const double stageOwn = column(stage, &Sample::ownCpu);
    const double ownShare = stageOwn / stageTool * 100;
    std::printf("archive %.0f MB, unpacked %.0f MB in %d files, %d interleaved rounds, medians\n",
        QFileInfo(archive).size() / 1e6, stage.last().bytes / 1e6, stage.last().files, rounds);
    std::printf("bare 7zz x       %6.2f s  tool CPU %6.2f s  own CPU %.3f s\n", bareWall,
        column(bare, &Sample::toolCpu), column(bare, &Sample::ownCpu));
    std::printf("unzip stage      %6.2f s  tool CPU %6.2f s  own CPU %.3f s  (%d progress reports)\n",
        stageWall, stageTool, stageOwn, s_progressReports);
    std::printf("wall time stage / bare tool: %.3f (goal <= 1.03)\n", stageWall / bareWall);
    std::printf("stage's own CPU: %.2f%% of the tool's (goal < 2%%)\n", ownShare);
    bool sameTree = true;
    for (int i = 0; i < rounds; ++i)
        sameTree = sameTree && bare[i].bytes == stage[i].bytes && bare[i].files == stage[i].files;
    std::printf("trees: %s\n", sameTree ? "same size and file count" : "DIFFER");
    return sameTree ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 3 && args.at(1) == QLatin1String("generate"))
        return generate(args.at(2));
    if (args.size() == 5 && args.at(1) == QLatin1String("run"))
        return run(QFileInfo(args.at(2)).absoluteFilePath(), QFileInfo(args.at(3)).absoluteFilePath(),
            args.at(4).toInt());
    std::fprintf(stderr, "usage: unzip generate <dir> | unzip run <archive> <work-dir> <rounds>\n");
    return 2;
}

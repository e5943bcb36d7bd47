// Host program of the download benchmark: downloads the given files through the download component,
// the way the launcher does, and prints wall time, throughput, CPU time and peak memory of the whole
// process.
//
//   download <dir> <limitKBps or -1> <stopAfterSeconds or 0> <url> <size> [<url> <size> ...]
//
// With a stop time the job is paused then, and the rate over the run and over each second is printed.
#include "ProcessStatus.h"

#include "core/ComponentAccessors.h"
#include "core/CoreSystem.h"
#include "core/DownloadComponent.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTimer>
#include <QUrl>

#include <QFile>

#include <sys/resource.h>

#include <cstdio>

using namespace Morvantix;

namespace {

double cpuSeconds()
{
    rusage usage {};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec
        + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

qint64 bytesOnDisk(const QVector<DownloadFileInfo>& files)
{
    qint64 total = 0;
    for (const auto& file : files)
        total += QFileInfo(file.localPath).size();
    return total;
}

// Per-second rates seen while the job runs, from the bytes on disk.
class RateSampler
{
public:
    explicit RateSampler(const QVector<DownloadFileInfo>& files)
        : m_files(files)
    {
        m_clock.start();
    }
    void sample()
    {
        const qint64 bytes = bytesOnDisk(m_files);
        const qint64 ms = m_clock.elapsed();
        // The first second holds the connection set-up; it is not a steady-state figure.
        if (m_samples++ > 0 && ms > m_lastMs) {
            const double rate = (bytes - m_lastBytes) * 1000.0 / (ms - m_lastMs) / 1024.0;
            m_max = qMax(m_max, rate);
            m_min = m_min < 0 ? rate : qMin(m_min, rate);
        }
        m_lastBytes = bytes;
        m_lastMs = ms;
    }
    double max() const { return m_max; }
    double min() const { return m_min; }

private:
    QVector<DownloadFileInfo> m_files;
    QElapsedTimer m_clock;
    qint64 m_lastBytes = 0;
    qint64 m_lastMs = 0;
    int m_samples = 0;
    double m_max = 0;
    double m_min = -1;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 6 || (argc - 4) % 2 != 0) {
        std::fprintf(stderr, "usage: download <dir> <limitKBps|-1> <stopAfterSeconds|0> <url> <size>...\n");
        return 2;
    }
    // The library's diagnostics would otherwise compete with the transfer for the terminal.
    qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});

    const QString dir = QString::fromLocal8Bit(argv[1]);
    const int limit = QByteArray(argv[2]).toInt();
    const int stopAfter = QByteArray(argv[3]).toInt();
    auto ctx = CoreSystem::GetCoreSystemInst()->GetCurGameUpdateContext();
    ctx->m_downloadFileList.clear();
    ctx->m_updateSetting.cachePath = dir;
    for (int i = 4; i + 1 < argc; i += 2) {
        DownloadFileInfo file;
        file.url = QString::fromLocal8Bit(argv[i]);
        file.name = QUrl(file.url).fileName();
        file.localPath = dir + QLatin1Char('/') + file.name;
        file.size = QByteArray(argv[i + 1]).toLongLong();
        ctx->m_downloadFileList.append(file);
    }
    ctx->m_bLimitSpeed = limit > 0;
    ctx->m_updateSetting.limitSpeed = limit;

    auto component = GetDownloadComponent();
    QElapsedTimer clock;
    double seconds = 0;
    bool failed = false;
    component->RegistCallbackFunc([&](DownloadCallbackInfo& info) {
        if (!info.bComplete && !info.bError)
            return;
        seconds = clock.nsecsElapsed() / 1e9;
        failed = info.bError;
        app.quit();
    });

    RateSampler sampler(ctx->m_downloadFileList);
    QTimer sampleTimer;
    QObject::connect(&sampleTimer, &QTimer::timeout, [&] { sampler.sample(); });
    if (stopAfter > 0) {
        sampleTimer.start(1000);
        QTimer::singleShot(stopAfter * 1000, [&] {
            seconds = clock.nsecsElapsed() / 1e9;
            component->PauseDownload(*ctx);
            app.quit();
        });
    }

    clock.start();
    component->StartDownload(*ctx);
    app.exec();

    const qint64 bytes = bytesOnDisk(ctx->m_downloadFileList);
    std::printf(
        "result=%s bytes=%lld seconds=%.3f mibps=%.1f cpu=%.2f peakmib=%.1f avgkbps=%.1f max1skbps=%.1f "
        "min1skbps=%.1f\n",
        failed ? "error" : "ok", static_cast<long long>(bytes), seconds, bytes / 1048576.0 / seconds,
        cpuSeconds(), (peakResidentKb() / 1024.0), bytes / 1024.0 / seconds, sampler.max(), sampler.min());
    return failed ? 1 : 0;
}

// Hashes one large file with GetFileMD5 and GetFileCRC32 and with the system's md5sum in the same
// run, and prints the throughput of each, the ratio to md5sum and the growth of peak memory; then the
// signed channel's SHA-256 against sha256sum.
#include "ProcessStatus.h"

#include "files/QFileUtils.h"
#include "files/Sha256Hasher.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTextStream>

#include <cstdio>
#include <functional>
#include <limits>

namespace {

// Best of `runs` timings, in seconds; the result of the last run is left in `result`.
double bestSeconds(int runs, const std::function<QString()>& work, QString& result)
{
    double best = 1e30;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        result = work();
        best = qMin(best, timer.nsecsElapsed() / 1e9);
    }
    return best;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        std::fprintf(stderr, "usage: hash <file> [runs]\n");
        return 2;
    }
    const QString path = QString::fromLocal8Bit(argv[1]);
    const int runs = argc > 2 ? QByteArray(argv[2]).toInt() : 3;
    const double mb = QFileInfo(path).size() / 1e6;

    QString md5sumDigest;
    const double md5sumSecs = bestSeconds(
        runs,
        [&] {
            QProcess md5sum;
            md5sum.start(QStringLiteral("md5sum"), { path });
            md5sum.waitForFinished(-1);
            return QString::fromLatin1(md5sum.readAllStandardOutput().left(32));
        },
        md5sumDigest);

    const qint64 peakBefore = peakResidentKb();
    QString md5Digest;
    const double md5Secs = bestSeconds(
        runs, [&] { return QFileUtils::GetFileMD5(path); }, md5Digest);
    const qint64 peakAfterMd5 = peakResidentKb();
    QString crc;
    const double crcSecs = bestSeconds(
        runs, [&] { return QString::number(QFileUtils::GetFileCRC32(path), 16); }, crc);
    const qint64 peakAfterCrc = peakResidentKb();

    std::printf("file: %.0f MB, best of %d runs, warm page cache\n", mb, runs);
    std::printf("md5sum          %8.1f MB/s\n", mb / md5sumSecs);
    std::printf("GetFileMD5      %8.1f MB/s  ratio to md5sum %.2f  digest %s\n", mb / md5Secs,
        md5sumSecs / md5Secs, md5Digest == md5sumDigest ? "matches" : "DIFFERS");
    std::printf("GetFileCRC32    %8.1f MB/s  ratio to md5sum %.2f  crc %s\n", mb / crcSecs,
        md5sumSecs / crcSecs, qPrintable(crc));
    QString sha256sumDigest;
    const double sha256sumSecs = bestSeconds(
        runs,
        [&] {
            QProcess sha256sum;
            sha256sum.start(QStringLiteral("sha256sum"), { path });
            sha256sum.waitForFinished(-1);
            return QString::fromLatin1(sha256sum.readAllStandardOutput().left(64));
        },
        sha256sumDigest);
    QString sha256Digest;
    const double sha256Secs = bestSeconds(
        runs,
        [&] {
            QString hex;
            qint64 size = 0;
            Sha256Hasher::HexDigestOfFile(path, std::numeric_limits<qint64>::max(), hex, size);
            return hex;
        },
        sha256Digest);
    std::printf("sha256sum       %8.1f MB/s\n", mb / sha256sumSecs);
    std::printf("Sha256Hasher    %8.1f MB/s  ratio to sha256sum %.2f  digest %s\n", mb / sha256Secs,
        sha256sumSecs / sha256Secs, sha256Digest == sha256sumDigest ? "matches" : "DIFFERS");
    std::printf("peak memory growth: MD5 %lld KiB, CRC-32 %lld KiB\n", peakAfterMd5 - peakBefore,
        peakAfterCrc - peakAfterMd5);
    return md5Digest == md5sumDigest ? 0 : 1;
}

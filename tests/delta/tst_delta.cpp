#include "TestFiles.h"
#include "TestRegistry.h"

#include "delta/Encoder.h"
#include "delta/FilePatch.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <zlib.h>

#ifdef Q_OS_LINUX
#include <csignal>
#include <sys/resource.h>
#endif

using TestFiles::patternBytes;
using TestFiles::readFile;
using TestFiles::writeFile;

namespace {

// Compressible text that changes a little from one seed to the next, as a changelog does.
QByteArray textOf(int lines, int seed)
{
    QByteArray text;
    for (int i = 0; i < lines; ++i)
        text += "line " + QByteArray::number(i) + ": version " + QByteArray::number(i % 97 == 0 ? seed : 1)
            + " of the entry\n";
    return text;
}

QByteArray gzipped(const QByteArray& data)
{
    z_stream zip {};
    deflateInit2(&zip, 9, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY);
    QByteArray out(int(deflateBound(&zip, uLong(data.size()))) + 64, '\0');
    zip.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    zip.avail_in = uInt(data.size());
    zip.next_out = reinterpret_cast<Bytef*>(out.data());
    zip.avail_out = uInt(out.size());
    deflate(&zip, Z_FINISH);
    out.resize(int(zip.total_out));
    deflateEnd(&zip);
    return out;
}

// Code as a linker lays it out: instructions between 4-byte addresses into the same image. The
// relinked image has a block inserted near its start, so every address after it moves by shift.
QByteArray linkedImage(int words, quint32 shift, int seed)
{
    const QByteArray opcodes = patternBytes(words * 4, quint32(seed));
    QByteArray image;
    for (int i = 0; i < words; ++i) {
        image += opcodes.mid(i * 4, 4);
        quint32 target = quint32(0x400000 + (i * 37 % words) * 8) + (i > words / 10 ? shift : 0);
        image += QByteArray(reinterpret_cast<const char*>(&target), 4);
    }
    if (shift > 0)
        image.insert(words / 10 * 8, patternBytes(shift, 99));
    return image;
}

// A new file put together from short pieces of the old one, scattered over all of it and ending with
// its last bytes, each piece behind a few bytes of its own: a major version's diff copies this way.
QByteArray shortPiecesOf(const QByteArray& old, int pieces, int shortest = 40)
{
    QByteArray out;
    const QByteArray between = patternBytes(pieces * 8, 77);
    quint32 state = 12345;
    for (int i = 0; i < pieces; ++i) {
        state = state * 1664525u + 1013904223u;
        const int length = shortest + int(state % 60);
        const int from
            = i == pieces - 1 ? old.size() - length : int((state >> 8) % quint32(old.size() - length));
        out += between.mid(i * 8, 8) + old.mid(from, length);
    }
    return out;
}

// Every pair of bytes exactly once (a de Bruijn sequence over 256 symbols): the old file's suffix
// buckets then hold one suffix each, and a search ends at a bucket's two ends.
QByteArray everyPairOnce()
{
    QByteArray out;
    for (int first = 0; first < 256; ++first) {
        out += char(first);
        for (int second = first + 1; second < 256; ++second)
            out += char(first) + QByteArray(1, char(second));
    }
    return out + char(0);
}

QByteArray flipped(QByteArray data, int every)
{
    for (int i = every / 2; i < data.size(); i += every)
        data[i] = char(~data[i]);
    return data;
}

std::string native(const QString& path)
{
    return QFile::encodeName(path).toStdString();
}

} // namespace

class TestDelta : public QObject
{
    Q_OBJECT
private slots:
    void roundTrips_data()
    {
        QTest::addColumn<QByteArray>("oldBytes");
        QTest::addColumn<QByteArray>("newBytes");
        QTest::addColumn<qint64>("budget"); // below the whole-file need: matched span by span
        QTest::addColumn<bool>("deflate");
        QTest::addColumn<int>("largestDiff"); // bytes, or -1: no bound
        const QByteArray base = patternBytes(1 << 20, 1);
        const QByteArray big = patternBytes(3 << 20, 2);
        const qint64 plenty = qint64(2) << 30, tight = 17 << 20;
        const QByteArray moved = base.mid(600000, 200000) + base.left(600000) + base.mid(800000);
        QByteArray bigEdited = big;
        for (int i = 1; i < 6; ++i)
            bigEdited.replace(i * 500000, 4096, patternBytes(4096, quint32(i + 10)));
        // Large enough to be described on both cores: edits straddle where its parts meet, and an
        // insertion near the start moves every part off the place it is guessed to start from.
        const QByteArray large = patternBytes(5 << 20, 4);
        QByteArray largeEdited = large;
        largeEdited.insert(100000, patternBytes(5000, 30));
        for (int i = 1; i < 5; ++i)
            largeEdited.replace(
                int(qint64(largeEdited.size()) * i / 5) - 2000, 4000, patternBytes(4000, quint32(i + 20)));
        // Every third byte one less: a carry is pending at the 1 MiB mark, where the apply's cache is
        // written out inside a copy (the parts' seams lie elsewhere).
        const QByteArray dense = big.left((3 << 20) - 12345);
        QByteArray denseEdited = dense;
        for (int i = 900000; i < 1200000; i += 3)
            denseEdited[i] = char(denseEdited[i] - 1);
        QByteArray bigShifted = big;
        bigShifted.insert(1500000, patternBytes(30000, 5));
        bigShifted.remove(2500000, 10000);

        const QByteArray odd = patternBytes((1 << 20) + 777, 6);
        // Runs of 20 bytes of 0x01 made 0x00: each run's difference is minus one, so its first word
        // carries out, the second carries out only through the carry in, and the last four bytes
        // are right only if that carry reaches them.
        QByteArray ones = base, zeros = base;
        for (int i = 400000; i < 600000; i += 64) {
            ones.replace(i, 20, QByteArray(20, '\x01'));
            zeros.replace(i, 20, QByteArray(20, '\0'));
        }
        const QByteArray pairs = everyPairOnce();
        const QByteArray text = textOf(20000, 1);
        QByteArray unseen = patternBytes(50000, 9);
        for (char& byte : unseen)
            byte = char(byte | 0x80); // no three of these stand in the text

        QTest::newRow("both empty") << QByteArray() << QByteArray() << plenty << false << -1;
        QTest::newRow("from empty") << QByteArray() << base.left(5000) << plenty << false << -1;
        QTest::newRow("to empty") << base.left(5000) << QByteArray() << plenty << false << 200;
        QTest::newRow("one byte") << QByteArray("a") << QByteArray("b") << plenty << false << 200;
        QTest::newRow("identical") << base << base << plenty << false << 200;
        QTest::newRow("inserts") << base
                                 << base.left(1000) + "inserted" + base.mid(1000, 500000) + "more"
                + base.mid(500000)
                                 << plenty << false << 400;
        QTest::newRow("deletes") << base << base.left(3000) + base.mid(9000, 400000) + base.mid(700000)
                                 << plenty << false << 300;
        QTest::newRow("moved blocks") << base << moved << plenty << false << 300;
        QTest::newRow("byte flips") << base << flipped(base, 4096) << plenty << false << 2500;
        QTest::newRow("shifted addresses")
            << linkedImage(100000, 0, 3) << linkedImage(100000, 64, 3) << plenty << true << 40000;
        QTest::newRow("gzip files") << gzipped(textOf(20000, 1)) << gzipped(textOf(20000, 2)) << plenty
                                    << false << -1;
        QTest::newRow("streams deflated") << base << flipped(base, 1000) + "tail" << plenty << true << 8000;
        QTest::newRow("carries across the cache") << dense << denseEdited << plenty << false << 350000;
        QTest::newRow("parts on both cores") << large << largeEdited << plenty << false << 40000;
        QTest::newRow("spans, same places") << big << bigEdited << tight << false << 25000;
        QTest::newRow("spans, shifted") << big << bigShifted << tight << false << 35000;
        QTest::newRow("short copies, to the old file's end")
            << odd << shortPiecesOf(odd, 4000) << plenty << false << -1;
        // More copies than a stretch may hold, from both windows of the old file.
        QTest::newRow("short copies, past a stretch's count")
            << big << shortPiecesOf(big, 60000, 16) << plenty << false << -1;
        QTest::newRow("carries through whole words") << ones << zeros << plenty << false << -1;
        QTest::newRow("passed-over matches taken on")
            << base << flipped(base.left(200000), 10) + base.mid(200000) << plenty << false << 80000;
        QTest::newRow("every pair once")
            << pairs << pairs.mid(30000, 20000) + pairs.left(30000) + pairs.mid(50000) << plenty << false
            << 300;
        QTest::newRow("sequences the old file lacks")
            << text << text.left(100000) + unseen + text.mid(100000) << plenty << false << -1;
        QTest::newRow("spans, new file longer") << big.left(1 << 20) << big << tight << false << -1;
    }
    void roundTrips()
    {
        QFETCH(QByteArray, oldBytes);
        QFETCH(QByteArray, newBytes);
        QFETCH(qint64, budget);
        QFETCH(bool, deflate);
        QFETCH(int, largestDiff);
        QTemporaryDir dir;
        QVERIFY(writeFile(dir.filePath("old"), oldBytes) && writeFile(dir.filePath("new"), newBytes));
        Delta::EncodeOptions options;
        options.memoryBudget = quint64(budget);
        options.codec = deflate ? Delta::Codec::Deflate : Delta::Codec::Stored;
        const Delta::Result encoded = Delta::Encoder(options).encode(
            native(dir.filePath("old")), native(dir.filePath("new")), native(dir.filePath("diff")));
        QVERIFY2(encoded.ok(), encoded.message.c_str());
        const qint64 diffSize = QFileInfo(dir.filePath("diff")).size();
        QVERIFY2(largestDiff < 0 || diffSize <= largestDiff, qPrintable(QString::number(diffSize)));
        // Only the diff is left beside it.
        QCOMPARE(
            QDir(dir.path()).entryList(QDir::Files | QDir::Hidden), QStringList({ "diff", "new", "old" }));

        // Applied by the patch program with the smallest cache, whose stretches of 1 MiB end inside
        // most of these files; then in place, as the merge stage runs it.
        for (const char* cache : { "-s-64k", "-s-1m" }) {
            const QString out = dir.filePath(cache == QLatin1String("-s-1m") ? "old" : "out");
            QProcess tool;
            tool.start(CORE_TOOL_DIR "/hpatchz",
                { dir.filePath("old"), dir.filePath("diff"), out, "-f", cache, "-C-old-new-diff" });
            QVERIFY(tool.waitForFinished(60000));
            QVERIFY2(tool.exitCode() == 0, tool.readAllStandardError().constData());
            QVERIFY2(readFile(out) == newBytes, cache);
        }
    }

    void refusesBadInput_data()
    {
        QTest::addColumn<QString>("damage");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("message");
        QTest::newRow("another old file") << "other old" << 3 << "is not the file the diff was made from";
        QTest::newRow("old file of another size") << "short old" << 3 << "the diff was made from a file of";
        QTest::newRow("truncated diff") << "truncate" << 4 << "truncated";
        QTest::newRow("flipped byte in a stream") << "flip" << 4 << "checksum";
        QTest::newRow("no diff at all") << "garbage" << 4 << "is no diff";
        QTest::newRow("later format") << "version" << 5 << "format version 3";
        QTest::newRow("out exists without -f") << "no force" << 1 << "-f overwrites it";
        QTest::newRow("folder") << "folder" << 1 << "folder diffs are not supported";
        QTest::newRow("old file missing, out left alone") << "missing old" << 1 << "cannot read old file";
#ifdef Q_OS_LINUX
        QTest::newRow("new file cannot be written") << "small disk" << 1 << "cannot write";
#endif
    }
    void refusesBadInput()
    {
        QFETCH(QString, damage);
        QFETCH(int, exitCode);
        QFETCH(QString, message);
        QTemporaryDir dir;
        const QByteArray oldBytes = patternBytes(300000, 1);
        const QByteArray newBytes = flipped(oldBytes, 5000) + "tail";
        QVERIFY(writeFile(dir.filePath("old"), oldBytes) && writeFile(dir.filePath("new"), newBytes));
        QVERIFY(Delta::Encoder({})
                    .encode(native(dir.filePath("old")), native(dir.filePath("new")),
                        native(dir.filePath("diff")))
                    .ok());
        QByteArray diff = readFile(dir.filePath("diff"));
        if (damage == "truncate")
            diff.chop(3);
        if (damage == "flip")
            diff[diff.size() - 10] = char(diff[diff.size() - 10] ^ 1);
        if (damage == "garbage")
            diff = QByteArray("\xd6\xc3\xc4\x00garbage", 11).repeated(20);
        if (damage == "version")
            diff[8] = 3;
        QVERIFY(writeFile(dir.filePath("diff"), diff));
        if (damage == "other old")
            QVERIFY(writeFile(dir.filePath("old"), patternBytes(300000, 2)));
        if (damage == "short old")
            QVERIFY(writeFile(dir.filePath("old"), oldBytes.left(1000)));
        const QString oldPath
            = damage == "folder" ? dir.path() : dir.filePath(damage == "missing old" ? "none" : "old");
        const QMap<QString, QString> before = TestFiles::md5Tree(dir.path());

        QProcess tool;
        QStringList arguments { oldPath, dir.filePath("diff"), dir.filePath("old"), "-s-1m",
            "-C-old-new-diff" };
        if (damage != "no force")
            arguments << "-f";
#ifdef Q_OS_LINUX
        // A limit on the size of the files the tool writes stands for a full disk: the new file's
        // writes fail part-way. The tool inherits it at its start.
        rlimit limit {};
        getrlimit(RLIMIT_FSIZE, &limit);
        if (damage == "small disk") {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit small { 100000, limit.rlim_max };
            setrlimit(RLIMIT_FSIZE, &small);
        }
        tool.start(CORE_TOOL_DIR "/hpatchz", arguments);
        setrlimit(RLIMIT_FSIZE, &limit);
#else
        tool.start(CORE_TOOL_DIR "/hpatchz", arguments);
#endif
        QVERIFY(tool.waitForFinished(30000));
        const QString errors = QString::fromLocal8Bit(tool.readAllStandardError());
        QVERIFY2(tool.exitCode() == exitCode && errors.contains(message), qPrintable(errors));
        // Nothing written: the old file as it was, no temporary file left.
        QCOMPARE(TestFiles::md5Tree(dir.path()), before);
    }

    // The Windows program, cross-built from the same sources, under Wine: a diff made here applied in
    // place.
    void windowsProgramAppliesInPlace()
    {
#if defined(Q_OS_WIN)
        QSKIP("the Linux suite's run of hpatchz.exe under Wine; here every diff test runs it as the program");
#elif !defined(CORE_WINDOWS_HPATCHZ)
        QSKIP("hpatchz.exe is not built here (no MinGW-w64 cross compiler)");
#else
        const QString wine = QStringLiteral("/usr/lib/wine/wine64");
        if (!QFileInfo(wine).isExecutable())
            QSKIP("Wine is missing (Debian's wine64): hpatchz.exe not run");
        QTemporaryDir dir;
        const QByteArray oldBytes = linkedImage(200000, 0, 7);
        const QByteArray newBytes = linkedImage(200000, 48, 7);
        QVERIFY(writeFile(dir.filePath("game/a.pak"), oldBytes) && writeFile(dir.filePath("new"), newBytes));
        QVERIFY(Delta::Encoder({})
                    .encode(native(dir.filePath("game/a.pak")), native(dir.filePath("new")),
                        native(dir.filePath("a.pak.patch")))
                    .ok());
        QProcess tool;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // A private prefix inside the build tree, made once and kept between runs.
        environment.insert("WINEPREFIX", QCoreApplication::applicationDirPath() + "/wineprefix");
        environment.insert("WINEDEBUG", "-all");
        environment.insert("WINEDLLOVERRIDES", "mscoree,mshtml=");
        tool.setProcessEnvironment(environment);
        tool.start(wine,
            { CORE_WINDOWS_HPATCHZ, dir.filePath("game/a.pak"), dir.filePath("a.pak.patch"),
                dir.filePath("game/a.pak"), "-f", "-s-1m", "-C-old-new-diff" });
        QVERIFY(tool.waitForFinished(240000));
        QVERIFY2(tool.exitCode() == 0, tool.readAllStandardError().constData());
        QVERIFY(readFile(dir.filePath("game/a.pak")) == newBytes);
        QCOMPARE(QDir(dir.filePath("game")).entryList(QDir::Files | QDir::Hidden), QStringList { "a.pak" });
#endif
    }
};

CORE_TEST_CLASS(TestDelta)
#include "tst_delta.moc"

#include "TestRegistry.h"

#include "DiskSpace.h"
#include "Renderer.h"

#include <QBuffer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

using Morvantix::ManifestFileMap;

namespace {

ManifestFileMap files(const QString& spec) // "path:md5:size ..."
{
    ManifestFileMap map;
    for (const QString& item : spec.split(' ', Qt::SkipEmptyParts)) {
        const QStringList f = item.split(':');
        map.insert(f[0], { f[0], f[1], f[2].toULongLong() });
    }
    return map;
}

QList<QJsonObject> jsonLines(const QByteArray& text)
{
    QList<QJsonObject> objects;
    for (const QByteArray& line : text.split('\n')) {
        if (!line.isEmpty())
            objects << QJsonDocument::fromJson(line).object();
    }
    return objects;
}

} // namespace

class TestHostOutput : public QObject
{
    Q_OBJECT
private slots:
    void estimatesNeeds_data();
    void estimatesNeeds();
    void comparesVolumes_data();
    void comparesVolumes();
    void writesJsonLines();
    void writesPlainLines();
};

void TestHostOutput::estimatesNeeds_data()
{
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<qint64>("cache");
    QTest::addColumn<qint64>("game");
    QTest::newRow("full install") << ""
                                  << "a:1:100 b:2:50" << qint64(10 + 0) << qint64(150);
    QTest::newRow("changed and added") << "a:1:100 b:2:50 c:3:7"
                                       << "a:9:120 b:2:50 d:4:30" << qint64(10 + 150) << qint64(120 + 43);
    QTest::newRow("shrinking") << "a:1:100"
                               << "a:2:40" << qint64(10 + 40) << qint64(40);
}

void TestHostOutput::estimatesNeeds()
{
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(qint64, cache);
    QFETCH(qint64, game);
    const DiskSpace::Need need = from.isEmpty() ? DiskSpace::FullInstall(10, files(to))
                                                : DiskSpace::PatchStep(10, files(from), files(to));
    QCOMPARE(need.cacheBytes, cache);
    QCOMPARE(need.gameBytes, game);
}

void TestHostOutput::comparesVolumes_data()
{
    QTest::addColumn<QString>("gameRoot");
    QTest::addColumn<qint64>("free");
    QTest::addColumn<QString>("shortage");
    QTest::newRow("one volume, room for both") << "/" << qint64(300) << "";
    QTest::newRow("one volume, the sum counts")
        << "/" << qint64(299) << "the cache and the game on /: 300 B needed, 299 B free";
    QTest::newRow("two volumes, each its own") << "/g" << qint64(200) << "";
    QTest::newRow("two volumes, game short")
        << "/g" << qint64(199) << "the game on /g: 200 B needed, 199 B free";
}

void TestHostOutput::comparesVolumes()
{
    QFETCH(QString, gameRoot);
    QFETCH(qint64, free);
    QFETCH(QString, shortage);
    const QString text = DiskSpace::Shortage({ 100, 200 }, { "/", free }, { gameRoot, free });
    QVERIFY2(shortage.isEmpty() ? text.isEmpty() : text.endsWith(shortage), qPrintable(text));
}

void TestHostOutput::writesJsonLines()
{
    QBuffer out;
    out.open(QIODevice::WriteOnly);
    auto renderer = MakeRenderer(true, &out, nullptr, false);
    renderer->stageStarted({ Stage::Download, 1, 2, "p.7z" });
    ProgressEvent progress;
    progress.stage = Stage::Download;
    progress.fraction = 0.5;
    progress.doneBytes = 5;
    progress.totalBytes = 10;
    renderer->progressed(progress);
    renderer->finished({ Stage::Check, true, false, 0, "a game file is in use: /g/a", "/g/a" }, {}, 5);

    const QList<QJsonObject> lines = jsonLines(out.data());
    QCOMPARE(lines.size(), 4);
    for (const QJsonObject& line : lines)
        QVERIFY(line.contains("time"));
    QCOMPARE(lines[0]["type"].toString(), "stage");
    QCOMPARE(lines[0]["step"].toInt(), 1);
    QCOMPARE(lines[1]["percent"].toDouble(), 50.0);
    QCOMPARE(lines[1]["total"].toDouble(), 10.0);
    QCOMPARE(lines[2]["type"].toString(), "error");
    QCOMPARE(lines[2]["stage"].toString(), "check");
    QCOMPARE(lines[2]["code"].toInt(), 5);
    QCOMPARE(lines[2]["path"].toString(), "/g/a");
    QCOMPARE(lines[3]["type"].toString(), "result");
    QCOMPARE(lines[3]["outcome"].toString(), "failed");
}

void TestHostOutput::writesPlainLines()
{
    QBuffer out;
    QBuffer err;
    out.open(QIODevice::WriteOnly);
    err.open(QIODevice::WriteOnly);
    auto renderer = MakeRenderer(false, &out, &err, false);
    renderer->stageStarted({ Stage::Unpack, 2, 2, "p.7z" });
    for (int i = 0; i <= 40; ++i) {
        ProgressEvent progress;
        progress.stage = Stage::Unpack;
        progress.step = 2;
        progress.steps = 2;
        progress.fraction = i / 40.0;
        renderer->progressed(progress);
    }
    JobSummary summary;
    summary.message = "updated 1.0.0.1 to 1.0.0.3";
    renderer->finished({}, summary, 0);

    const QStringList lines = QString::fromUtf8(err.data()).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.first(), "== unpack step 2/2 p.7z");
    QCOMPARE(lines.size(), 1 + 11); // a line per tenth, not per report
    QVERIFY(lines.last().contains("100.0%"));
    QCOMPARE(out.data(), QByteArray("updated 1.0.0.1 to 1.0.0.3\n"));
}

CORE_TEST_CLASS(TestHostOutput)
#include "tst_hostoutput.moc"

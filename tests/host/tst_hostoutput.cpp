#include "TestRegistry.h"

#include "DiskSpace.h"
#include "Renderer.h"
#include "ShownText.h"

#include <QBuffer>
#include <QtTest>

using Morvantix::ManifestFileMap;

namespace {

ManifestFileMap files(const QString& entries) // "path:md5:size ..."
{
    ManifestFileMap map;
    for (const QString& item : entries.split(' ', Qt::SkipEmptyParts)) {
        const QStringList f = item.split(':');
        map.insert(f[0], { f[0], f[1], f[2].toULongLong() });
    }
    return map;
}

} // namespace

class TestHostOutput : public QObject
{
    Q_OBJECT
private slots:
    void estimatesNeeds_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<qint64>("cache");
        QTest::addColumn<qint64>("game");
        const auto row = [](const char* name, const char* from, const char* to, qint64 cache, qint64 game) {
            QTest::newRow(name) << QString(from) << QString(to) << cache << game;
        };
        row("full install", "", "a:1:100 b:2:50", 10 + 0, 150);
        row("changed and added", "a:1:100 b:2:50 c:3:7", "a:9:120 b:2:50 d:4:30", 10 + 150, 120 + 43);
        row("shrinking", "a:1:100", "a:2:40", 10 + 40, 40);
    }
    void estimatesNeeds()
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

    void comparesVolumes_data()
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
    void comparesVolumes()
    {
        QFETCH(QString, gameRoot);
        QFETCH(qint64, free);
        QFETCH(QString, shortage);
        const QString text = DiskSpace::Shortage({ 100, 200 }, { "/", free }, { gameRoot, free });
        QVERIFY2(shortage.isEmpty() ? text.isEmpty() : text.endsWith(shortage), qPrintable(text));
    }

    void showsServerTextsTamed_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        const auto row = [](const char* name, const QString& text, const QString& shown) {
            QTest::newRow(name) << text << shown;
        };
        row("plain, lines kept", "维护\n下午三点", "维护\n下午三点");
        row("clear screen, title, bell",
            "a\x1b[2J\x1b]0;pwned\x07" // the bell ends here
            "b\r\tc",
            "a[2J]0;pwnedbc");
        row("C1 escape, DEL, direction override",
            QString("x") + QChar(0x9b) + "31m" + QChar(0x7f) + QChar(0x202e) + "y", "x31my");
        row("cut at the cap", QString(5000, 'n'), QString(2000, 'n') + "...");
    }
    void showsServerTextsTamed()
    {
        QFETCH(QString, text);
        QFETCH(QString, shown);
        QCOMPARE(ShownText(text), shown);
    }

    void writesPlainLines()
    {
        QBuffer out, err;
        QVERIFY(out.open(QIODevice::WriteOnly) && err.open(QIODevice::WriteOnly));
        auto renderer = MakeRenderer(false, &out, &err, false);
        renderer->stageStarted({ Stage::Unpack, 2, 2, "p.7z" });
        for (int i = 0; i <= 40; ++i)
            renderer->progressed({ Stage::Unpack, 2, 2, i / 40.0 });
        JobSummary summary;
        summary.message = "updated 1.0.0.1 to 1.0.0.3";
        renderer->finished({}, summary, 0);

        const QStringList lines = QString::fromUtf8(err.data()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.first(), "== unpack step 2/2 p.7z");
        QCOMPARE(lines.size(), 1 + 11); // a line per tenth, not per report
        QVERIFY(lines.last().contains("100.0%"));
        QCOMPARE(out.data(), QByteArray("updated 1.0.0.1 to 1.0.0.3\n"));
    }
};

CORE_TEST_CLASS(TestHostOutput)
#include "tst_hostoutput.moc"

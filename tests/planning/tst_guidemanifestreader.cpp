#include "TestRegistry.h"

#include "planning/GuideManifestReader.h"

#include <QtTest>

using namespace Morvantix;

namespace {

QStringList describe(const GuideManifestInfo& info)
{
    QStringList out;
    for (const PatchEntry& entry : info.patchList) {
        QStringList files;
        for (const PatchFileInfo& file : entry.files)
            files << QStringLiteral("%1:%2:%3").arg(file.path, file.md5).arg(file.size);
        out << QStringLiteral("%1->%2 %3 %4 %5")
                   .arg(entry.fromVersion, entry.toVersion, entry.bEnabled ? "patch" : "full")
                   .arg(entry.cost)
                   .arg(files.join(','));
    }
    return out;
}

} // namespace

class TestGuideManifestReader : public QObject
{
    Q_OBJECT
private slots:
    void readsPackagesAndNewest_data();
    void readsPackagesAndNewest();
};

void TestGuideManifestReader::readsPackagesAndNewest_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("lastVersion");
    QTest::addColumn<QStringList>("entries");

    QTest::newRow("published layout")
        << "--download_version--\r\n  "
           "1.0.0.1->1.0.0.2|patch/1.0.0.2/a.7z|0cc175b9c0f1b6a831c399e269772661|1048576\r\n"
           "1.0.0.2->1.0.0.2|full/1.0.0.2/full_1.0.0.2.7z|92eb5ffee6ae2fec3ad71c777531578f|734003200\r\n"
           "\r\n--last_version--\r\n1.0.0.2\r\n"
        << "1.0.0.2"
        << QStringList {
               "1.0.0.1->1.0.0.2 patch 1048576 patch/1.0.0.2/a.7z:0cc175b9c0f1b6a831c399e269772661:1048576",
               "1.0.0.2->1.0.0.2 full 734003200 "
               "full/1.0.0.2/full_1.0.0.2.7z:92eb5ffee6ae2fec3ad71c777531578f:734003200"
           };
    QTest::newRow("no markers") << "1.0.0.1->1.0.0.2|a|m|5\n1.0.0.2->1.0.0.3|b|m|6"
                                << ""
                                << QStringList { "1.0.0.1->1.0.0.2 patch 5 a:m:5",
                                       "1.0.0.2->1.0.0.3 patch 6 b:m:6" };
    QTest::newRow("lines of one package merge")
        << "1.0.0.1->1.0.0.2|a|m|10\n1.0.0.1->1.0.0.3|x|m|5\n1.0.0.1->1.0.0.2|b|n|20"
        << "" << QStringList { "1.0.0.1->1.0.0.2 patch 30 a:m:10,b:n:20", "1.0.0.1->1.0.0.3 patch 5 x:m:5" };
    QTest::newRow("pairs compare as text")
        << "1.0.0.2->1.0.0.3|a|m|1\n1.0.0.02->1.0.0.3|b|m|2"
        << "" << QStringList { "1.0.0.2->1.0.0.3 patch 1 a:m:1", "1.0.0.02->1.0.0.3 patch 2 b:m:2" };
    QTest::newRow("size not a number") << "1.0.0.1->1.0.0.2|a|m|12ab\n1.0.0.1->1.0.0.2|b|m|-3"
                                       << "" << QStringList { "1.0.0.1->1.0.0.2 patch 0 a:m:0,b:m:0" };
    QTest::newRow("short lines") << "1.0.0.5|p\n1.0.0.6->|q|m|1|extra|7"
                                 << "" << QStringList { "1.0.0.5-> patch 0 p::0", "1.0.0.6-> patch 1 q:m:1" };
    QTest::newRow("markers switch back and forth")
        << " --last_version-- \n1.0.0.1\n1.0.0.3\n--download_version--\n1.0.0.1->1.0.0.3|a|m|2\n"
           "--last_version--\n1.0.0.4\n--LAST_VERSION--"
        << "--LAST_VERSION--" << QStringList { "1.0.0.1->1.0.0.3 patch 2 a:m:2" };
    QTest::newRow("inner blanks folded") << "1.0.0.1->1.0.0.2 |a   b|m|3"
                                         << "" << QStringList { "1.0.0.1->1.0.0.2  patch 3 a b:m:3" };
}

void TestGuideManifestReader::readsPackagesAndNewest()
{
    QFETCH(QString, text);
    QFETCH(QString, lastVersion);
    QFETCH(QStringList, entries);
    const GuideManifestInfo info = ReadGuideManifest(text);
    QCOMPARE(info.lastVersion, lastVersion);
    QCOMPARE(describe(info), entries);
}

CORE_TEST_CLASS(TestGuideManifestReader)
#include "tst_guidemanifestreader.moc"

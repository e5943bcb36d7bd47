#include "TestRegistry.h"

#include "planning/VersionUtil.h"

#include <QMap>
#include <QtTest>

using namespace Morvantix;

namespace {

Version parsed(const QString& text)
{
    Version version;
    GetVersionByString(text, version);
    return version;
}

} // namespace

class TestVersionUtil : public QObject
{
    Q_OBJECT
private slots:
    void readsFourSections_data();
    void readsFourSections();
    void comparesByPackedKey_data();
    void comparesByPackedKey();
    void packsPartsIntoFixedBits();
};

void TestVersionUtil::readsFourSections_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("expected");
    QTest::newRow("three parts") << "1.2.3"
                                 << "1.2.3.0";
    QTest::newRow("empty") << ""
                           << "0.0.0.0";
    QTest::newRow("empty section") << "1..3.4"
                                   << "1.0.3.4";
    QTest::newRow("extra section") << "1.2.3.4.5"
                                   << "1.2.3.4";
    QTest::newRow("not a number") << "1.x.3.4"
                                  << "1.0.3.4";
    QTest::newRow("beyond int") << "1.2.3.99999999999"
                                << "1.2.3.0";
    QTest::newRow("negative") << "-1.20.300.4000"
                              << "-1.20.300.4000";
    QTest::newRow("leading zeros") << "01.002.0.7"
                                   << "1.2.0.7";
}

void TestVersionUtil::readsFourSections()
{
    QFETCH(QString, text);
    QFETCH(QString, expected);
    QCOMPARE(VersionToString(parsed(text)), expected);
}

void TestVersionUtil::comparesByPackedKey_data()
{
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<int>("order"); // -1: a older, 0: same version, 1: a newer
    QTest::newRow("build") << "1.2.0.0"
                           << "1.2.0.1" << -1;
    QTest::newRow("numbers, not text") << "1.0.0.10"
                                       << "1.0.0.9" << 1;
    QTest::newRow("same spelled twice") << "1.0.0.2"
                                        << "1.0.0.02" << 0;
    QTest::newRow("minor spills into major") << "1.0.0.0"
                                             << "0.256.0.0" << 0;
    QTest::newRow("parts are OR-ed, not added") << "1.256.0.0"
                                                << "1.0.0.0" << 0;
    QTest::newRow("patch spills into minor") << "0.1.0.0"
                                             << "0.0.65536.0" << 0;
    QTest::newRow("spilt minor outranks major") << "1.999.0.0"
                                                << "2.0.0.0" << 1;
    QTest::newRow("negative build sets all bits") << "0.0.0.-1"
                                                  << "99.99.99.99" << 1;
}

void TestVersionUtil::comparesByPackedKey()
{
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(int, order);
    const Version first = parsed(a);
    const Version second = parsed(b);
    QCOMPARE(first < second, order < 0);
    QCOMPARE(second<first, order> 0);
    QCOMPARE(first == second, order == 0);

    QMap<Version, int> byVersion;
    byVersion.insert(first, 1);
    byVersion.insert(second, 2);
    QCOMPARE(byVersion.size(), order == 0 ? 1 : 2);
}

void TestVersionUtil::packsPartsIntoFixedBits()
{
    QCOMPARE(VersionOrderKey(parsed("1.2.3.4")), Q_UINT64_C(0x0102000300000004));
    QCOMPARE(VersionOrderKey(parsed("0.0.-1.0")), Q_UINT64_C(0xFFFFFFFF00000000));
}

CORE_TEST_CLASS(TestVersionUtil)
#include "tst_versionutil.moc"

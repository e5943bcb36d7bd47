#include "TestRegistry.h"

#include "PackageChoice.h"

#include <QtTest>

#include <limits>

class TestPackageChoice : public QObject
{
    Q_OBJECT
private slots:
    void choosesTheSmallerDownload_data()
    {
        QTest::addColumn<QVector<qint64>>("chain");
        QTest::addColumn<qint64>("fullPackage");
        QTest::addColumn<bool>("full");
        const qint64 huge = std::numeric_limits<qint64>::max() - 10;
        QTest::newRow("one small patch") << QVector<qint64> { 1000 } << qint64(77000) << false;
        QTest::newRow("major jump: patch above the full package")
            << QVector<qint64> { 84000 } << qint64(77000) << true;
        QTest::newRow("equal: the full package") << QVector<qint64> { 77000 } << qint64(77000) << true;
        QTest::newRow("a chain that adds up past it")
            << QVector<qint64> { 30000, 30000, 30000 } << qint64(77000) << true;
        QTest::newRow("full package of unknown size") << QVector<qint64> { 84000 } << qint64(0) << false;
        QTest::newRow("absurd sizes saturate") << QVector<qint64> { huge, huge } << huge << true;
        QTest::newRow("negative sizes count nothing")
            << QVector<qint64> { -90000, 1000 } << qint64(77000) << false;
    }
    void choosesTheSmallerDownload()
    {
        QFETCH(QVector<qint64>, chain);
        QFETCH(qint64, fullPackage);
        QFETCH(bool, full);
        QCOMPARE(IsFullPackageSmaller(chain, fullPackage), full);
    }
};

CORE_TEST_CLASS(TestPackageChoice)
#include "tst_packagechoice.moc"

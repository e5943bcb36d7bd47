#include "TestRegistry.h"

#include "download/RestartBudget.h"

#include <QtTest>

// When network failures end a job and when they restart it, failure by failure.
class TestRestartBudget : public QObject
{
    Q_OBJECT

private slots:
    void verdicts_data()
    {
        // events: g a failure after the files grew, f one after they did not, p one while a restart
        // waits, r a fresh job. verdicts: R report, S restart, W wait; one letter per failure.
        QTest::addColumn<QString>("events");
        QTest::addColumn<QString>("verdicts");
        QTest::newRow("nothing ever arrived") << QString("ff") << QString("RR");
        QTest::newRow("four restarts, then the report") << QString("gffff") << QString("SSSSR");
        QTest::newRow("spent budget starts over") << QString("gfffff") << QString("SSSSRR");
        QTest::newRow("progress renews the budget") << QString("gfffgfff") << QString("SSSSSSSS");
        QTest::newRow("failures of one restart") << QString("gppf") << QString("SWWS");
        QTest::newRow("a fresh job forgets the data") << QString("gfrf") << QString("SSR");
    }

    void verdicts()
    {
        QFETCH(QString, events);
        QFETCH(QString, verdicts);
        RestartBudget budget(3);
        QString seen;
        for (const QChar event : events) {
            if (event == 'r') {
                budget.Reset();
                continue;
            }
            const RestartBudget::Verdict verdict = budget.OnFailure(event == 'g', event == 'p');
            seen += verdict == RestartBudget::Verdict::Report ? 'R'
                : verdict == RestartBudget::Verdict::Restart  ? 'S'
                                                              : 'W';
        }
        QCOMPARE(seen, verdicts);
    }
};

CORE_TEST_CLASS(TestRestartBudget)
#include "tst_restartbudget.moc"

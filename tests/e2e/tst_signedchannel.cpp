#include "ChannelSigner.h"
#include "HostBench.h"
#include "KeyFile.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "files/QFileUtils.h"
#include "planning/ChannelTrust.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

#include <functional>

// The signed channel against a real nginx: channel "one" holds version 1 of a small game, channel
// "two" versions 1 and 2 with a patch between them, both signed with the studio's key. Every case
// installs version 1 from "one" with the key, then meets a server that attacks the update to 2.
namespace {

const QString kBin = QStringLiteral(CORE_BIN_DIR);
const QString kPublisher = HostBench::executable(kBin, "core-publish");
using Morvantix::ChannelTrust;
using TestFiles::md5Tree;
using TestFiles::patternBytes;

TestFiles::Tree game(int n)
{
    TestFiles::Tree files { { "Paks/game.pak", patternBytes(900000, 11) },
        { "bin/game.exe", patternBytes(200000, 12) }, { "文件/说明.txt", "版本一\n" } };
    if (n >= 2) {
        files["Paks/game.pak"].replace(300000, 5000, patternBytes(5000, 13));
        files["文件/说明.txt"] = "版本二\n";
        files["new/added.dat"] = patternBytes(40000, 14);
    }
    return files;
}

using Run = HostBench::Run;

// A row's changes to "evil", a copy of channel "two"; patch: its one patch package.
using Attack = std::function<void(const QString& evil, const QString& patch)>;

} // namespace

Q_DECLARE_METATYPE(Attack)

class TestSignedChannel : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        if (!HostBench::canRun(kPublisher))
            QSKIP("needs nginx and core-publish");
        const QString root = m_bench.work();
        QCOMPARE(publish({ "--generate-key", key() }), 0);
        QCOMPARE(publish({ "--generate-key", root + "/other.key" }), 0);
        QVERIFY(Publish::KeyFile::ReadSecretKey(key(), m_secret).ok());
        QVERIFY(Publish::KeyFile::ReadSecretKey(root + "/other.key", m_otherSecret).ok());
        QVERIFY(TestFiles::writeTree(root + "/one/1.0.0.1", game(1)));
        for (int n = 1; n <= 2; ++n)
            QVERIFY(TestFiles::writeTree(QStringLiteral("%1/two/1.0.0.%2").arg(root).arg(n), game(n)));

        // "two" is published twice; its first list is the older one a rollback serves. "one" comes a
        // second later, so the serial a host records from it is above that first list's.
        QCOMPARE(publish({ root + "/two", www("two"), "--sign", key() }), 0);
        QVERIFY(QFileUtils::CopyOneFile(www("two") + "/channel.json", root + "/old/channel.json"));
        QVERIFY(QFileUtils::CopyOneFile(www("two") + "/channel.json.sig", root + "/old/channel.json.sig"));
        QTest::qWait(1100);
        QCOMPARE(publish({ root + "/one", www("one"), "--sign", key() }), 0);
        QCOMPARE(publish({ root + "/two", www("two"), "--sign", key(), "--expires", "5" }), 0);
        QVERIFY(Publish::ChannelSigner::PublishedSerial(www("two"))
            > Publish::ChannelSigner::PublishedSerial(root + "/old"));
        QVERIFY(m_bench.serve());
    }

    void init() { QVERIFY(m_bench.newCase()); }

    void installsUpdatesVerifiesAndRepairs()
    {
        QCOMPARE(m_bench.run("install", "one", { "--trust", key() + ".pub" }).exitCode, 0);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(game(1)));
        m_bench.server().clearAccessLog();
        // The key is pinned in the settings: later runs need no --trust.
        const Run update = m_bench.run("update", "two");
        QCOMPARE(update.exitCode, 0);
        QCOMPARE(update.last["result"]["outcome"].toString(), "updated");
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(game(2)));
        QCOMPARE(m_bench.packageRequests(), QStringList { "/two/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z" });
        QVERIFY(update.notices.filter("not verified").isEmpty());

        QVERIFY(TestFiles::writeFile(m_bench.game() + "/文件/说明.txt", "damaged"));
        QCOMPARE(m_bench.run("verify", "two").exitCode, 3);
        QCOMPARE(m_bench.run("repair", "two").exitCode, 0);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(game(2)));
        QCOMPARE(m_bench.run("verify", "two").exitCode, 0);
    }

    void withoutKeySaysSoOnce()
    {
        const Run run = m_bench.run("install", "two");
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.notices.filter("the channel is not verified").size(), 1);
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(game(2)));
    }

    void refusesAttack_data()
    {
        QTest::addColumn<Attack>("attack");
        QTest::addColumn<QString>("named"); // what the error names
        const auto write = [](const QString& path, const QByteArray& bytes) {
            QVERIFY(TestFiles::writeFile(path, bytes));
        };
        QTest::newRow("package changed, documents rewritten") << Attack(
            [=](const QString& evil, const QString& patch) {
                const QByteArray bytes = patternBytes(QFileInfo(patch).size(), 99);
                QByteArray guide = TestFiles::readFile(evil + "/manifest.txt");
                guide.replace(TestFiles::md5Hex(TestFiles::readFile(patch)).toLatin1(),
                    TestFiles::md5Hex(bytes).toLatin1());
                write(patch, bytes);
                write(evil + "/manifest.txt", guide);
            }) << "manifest.txt";
        QTest::newRow("old file list, new guide manifest") << Attack(
            [=](const QString& evil, const QString&) {
                write(evil + "/1.0.0.2/manifest.txt", TestFiles::readFile(evil + "/1.0.0.1/manifest.txt"));
            }) << "1.0.0.2/manifest.txt";
        QTest::newRow("older list and signature (rollback)") << Attack(
            [=](const QString& evil, const QString&) {
                for (const QString name : { "channel.json", "channel.json.sig" })
                    write(evil + '/' + name, TestFiles::readFile(m_bench.work() + "/old/" + name));
            }) << "older";
        QTest::newRow("expired list (freeze)") << Attack([=](const QString& evil, const QString&) {
            resign(evil, m_secret, QDateTime::currentDateTimeUtc().addDays(-31));
        }) << "expired";
        QTest::newRow("package longer than listed (endless data)") << Attack(
            [=](const QString&, const QString& patch) {
                write(patch, patternBytes(QFileInfo(patch).size() * 20, 98));
            }) << "1.0.0.1_1.0.0.2.7z";
        QTest::newRow("signature by another key") << Attack([=](const QString& evil, const QString&) {
            resign(evil, m_otherSecret, QDateTime::currentDateTimeUtc());
        }) << "not signed by the trusted key";
        QTest::newRow("missing signature") << Attack([](const QString& evil, const QString&) {
            QVERIFY(QFile::remove(evil + "/channel.json.sig"));
        }) << "no signature";
        QTest::newRow("truncated signature") << Attack([](const QString& evil, const QString&) {
            QVERIFY(QFile::resize(evil + "/channel.json.sig", 40));
        }) << "no signature";
        QTest::newRow("list larger than its cap") << Attack([=](const QString& evil, const QString&) {
            const QByteArray list = TestFiles::readFile(evil + "/channel.json");
            write(evil + "/channel.json", list + QByteArray(ChannelTrust::kMaxDocumentBytes, ' '));
        }) << "larger than";
        QTest::newRow("no list at all") << Attack([](const QString& evil, const QString&) {
            QVERIFY(QFile::remove(evil + "/channel.json") && QFile::remove(evil + "/channel.json.sig"));
        }) << "not signed";
    }
    void refusesAttack()
    {
        QFETCH(Attack, attack);
        QFETCH(QString, named);
        QCOMPARE(m_bench.run("install", "one", { "--trust", key() + ".pub" }).exitCode, 0);
        const QString settingsFile = m_bench.settingsFile();
        const QByteArray settings = TestFiles::readFile(settingsFile);
        QVERIFY(settings.contains(ChannelTrust::SerialKey().toLatin1()));
        const QString evil = www("evil");
        QDir(evil).removeRecursively();
        QVERIFY(QFileUtils::CopyMultiFiles(www("two"), evil));
        attack(evil, evil + "/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z");
        m_bench.server().clearAccessLog();

        const Run run = m_bench.run("update", "evil");
        QCOMPARE(run.exitCode, 10);
        QCOMPARE(run.last["error"]["stage"].toString(), "trust");
        QVERIFY2(run.last["error"]["text"].toString().contains(named),
            qPrintable(run.last["error"]["text"].toString()));
        QCOMPARE(md5Tree(m_bench.game()), md5Tree(game(1)));
        QCOMPARE(TestFiles::readFile(settingsFile), settings);
        // Only a package whose documents passed is fetched at all, and never past its listed size.
        const QString patch = "/evil/patch/1.0.0.2/1.0.0.1_1.0.0.2.7z";
        const bool endless = QByteArray(QTest::currentDataTag()).contains("endless");
        const QStringList expected = endless ? QStringList { patch, patch } : QStringList();
        QCOMPARE(m_bench.packageRequests(), expected);
        QDirIterator cached(
            m_bench.installDir() + "/MorvantixCache", { "*.7z*" }, QDir::Files, QDirIterator::Subdirectories);
        QVERIFY(!cached.hasNext());
    }

private:
    QString key() const { return m_bench.work() + "/studio.key"; }
    QString www(const QString& channel) const { return m_bench.www(channel); }
    static int publish(const QStringList& arguments) { return HostBench::publish(kPublisher, arguments); }

    // Signs a channel's files the way the publisher does, with another key or another clock.
    static void resign(const QString& channel, const QByteArray& secret, const QDateTime& now)
    {
        QStringList paths;
        for (const QString& path : TestFiles::md5Tree(channel).keys()) {
            if (!path.startsWith("channel.json") && path != "publish.json" && !path.contains("/files/"))
                paths << path;
        }
        QVERIFY(Publish::ChannelSigner(secret, 30)
                    .sign(channel, paths, Publish::ChannelSigner::PublishedSerial(channel), now)
                    .ok());
    }

    HostBench m_bench { "signed", kBin };
    QByteArray m_secret;
    QByteArray m_otherSecret;
};

CORE_TEST_CLASS(TestSignedChannel)
#include "tst_signedchannel.moc"

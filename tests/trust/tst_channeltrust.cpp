#include "ChannelSigner.h"
#include "KeyFile.h"
#include "TestFiles.h"
#include "TestRegistry.h"
#include "files/Sha256Hasher.h"
#include "planning/ChannelDocument.h"
#include "planning/ChannelTrust.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sodium.h>

using Morvantix::ChannelDocument;
using Morvantix::ChannelTrust;
using Verdict = ChannelTrust::Verdict;
using Publish::ChannelSigner;

Q_DECLARE_METATYPE(ChannelTrust::Verdict)

namespace {

const QDateTime kNow = QDateTime(QDate(2026, 6, 1), QTime(12, 0), Qt::UTC);

// A key pair made by the publisher's own key writer: the secret key's bytes and the public key's.
struct Keys
{
    QByteArray secret;
    QByteArray publicKey;
};

Keys makeKeys(const QString& path)
{
    Keys keys;
    if (Publish::KeyFile::Generate(path).ok() && Publish::KeyFile::ReadSecretKey(path, keys.secret).ok())
        keys.publicKey
            = ChannelTrust::ReadPublicKey(TestFiles::readFile(Publish::KeyFile::PublicKeyPath(path)));
    return keys;
}

// JSON written with single quotes, which read more easily in a table.
QByteArray json(QByteArray text)
{
    return text.replace('\'', '"');
}

QByteArray signBytes(const QByteArray& secret, const QByteArray& bytes)
{
    QByteArray signature(int(crypto_sign_BYTES), Qt::Uninitialized);
    crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
        reinterpret_cast<const unsigned char*>(bytes.constData()), quint64(bytes.size()),
        reinterpret_cast<const unsigned char*>(secret.constData()));
    return signature.toBase64() + '\n';
}

} // namespace

class TestChannelTrust : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase()
    {
        QVERIFY(sodium_init() >= 0);
        m_keys = makeKeys(m_dir.filePath("studio.key"));
        m_otherKeys = makeKeys(m_dir.filePath("other.key"));
        QVERIFY(!m_keys.publicKey.isEmpty() && !m_otherKeys.publicKey.isEmpty());
        // A small channel root, signed the way the publisher signs it.
        m_root = m_dir.filePath("channel");
        QVERIFY(TestFiles::writeFile(m_root + "/info.json", "{}\n"));
        QVERIFY(TestFiles::writeFile(m_root + "/manifest.txt", "1.0.0.1\n"));
        QVERIFY(
            TestFiles::writeFile(m_root + "/full/1.0.0.1/full_1.0.0.1.7z", TestFiles::patternBytes(70000)));
        QVERIFY(ChannelSigner(m_keys.secret, 30)
                    .sign(m_root, { "info.json", "manifest.txt", "full/1.0.0.1/full_1.0.0.1.7z" }, 41, kNow)
                    .ok());
        m_document = TestFiles::readFile(m_root + "/channel.json");
        m_signature = TestFiles::readFile(m_root + "/channel.json.sig");
    }

    void keyFiles()
    {
        const QString path = m_dir.filePath("studio.key");
        const QFile::Permissions permissions = QFileInfo(path).permissions();
        QVERIFY(permissions.testFlag(QFile::ReadOwner) && permissions.testFlag(QFile::WriteOwner));
#ifndef Q_OS_WIN // where the user's profile folder keeps others out, not permission bits
        QCOMPARE(int(permissions & 0x0077), 0); // nothing for the group or others
#endif
        QCOMPARE(TestFiles::readFile(path + ".pub").count('\n'), 1);
        // An existing key is never replaced.
        QCOMPARE(int(Publish::KeyFile::Generate(path).code), int(Publish::ExitCode::BadInput));
        QByteArray secret;
        QVERIFY(!Publish::KeyFile::ReadSecretKey(path + ".pub", secret).ok());
        QVERIFY(ChannelTrust::ReadPublicKey(m_keys.publicKey.toBase64() + "\n\n").size() == 32);
        QVERIFY(ChannelTrust::ReadPublicKey(m_keys.publicKey.toBase64().left(20)).isEmpty());
        QVERIFY(ChannelTrust::ReadPublicKey("not base64 at all!").isEmpty());
    }

    void signerWritesWhatTheListNeeds()
    {
        ChannelDocument read;
        QVERIFY(Morvantix::ReadChannelDocument(m_document, read));
        // Above the serial published before, and never below the clock's seconds.
        QCOMPARE(read.serial, quint64(kNow.toSecsSinceEpoch()));
        QCOMPARE(read.expires, kNow.addDays(30));
        QCOMPARE(
            read.files.keys(), QStringList({ "full/1.0.0.1/full_1.0.0.1.7z", "info.json", "manifest.txt" }));
        QCOMPARE(read.files["info.json"].size, qint64(3));
        QCOMPARE(read.files["info.json"].sha256,
            QString::fromLatin1(QCryptographicHash::hash("{}\n", QCryptographicHash::Sha256).toHex()));
        QCOMPARE(ChannelSigner::PublishedSerial(m_root), read.serial);
        // Signing again goes above it even with the clock behind.
        const QString again = m_dir.filePath("again");
        QVERIFY(TestFiles::writeFile(again + "/info.json", "{}\n"));
        QVERIFY(TestFiles::writeFile(again + "/channel.json", m_document));
        QVERIFY(ChannelSigner(m_keys.secret, 1)
                    .sign(again, { "info.json" }, ChannelSigner::PublishedSerial(again), kNow.addYears(-1))
                    .ok());
        QCOMPARE(ChannelSigner::PublishedSerial(again), read.serial + 1);
        QVERIFY(!ChannelSigner(m_keys.secret, 1).sign(again, { "missing.txt" }, 0, kNow).ok());
    }

    void documentRefusesMalformed_data()
    {
        QTest::addColumn<QByteArray>("json");
        const QByteArray hex = QByteArray(64, 'a');
        const auto listing = [](const QByteArray& file) {
            return json("{'serial': 1, 'expires': '2030-01-01T00:00:00Z', 'files': {" + file + "}}");
        };
        QTest::newRow("climbing path") << listing("'../x': {'size': 3, 'sha256': '" + hex + "'}");
        QTest::newRow("absolute path") << listing("'/etc/x': {'size': 3, 'sha256': '" + hex + "'}");
        QTest::newRow("upper-case digest") << listing("'a': {'size': 3, 'sha256': '" + hex.toUpper() + "'}");
        QTest::newRow("short digest") << listing("'a': {'size': 3, 'sha256': 'ab'}");
        QTest::newRow("negative size") << listing("'a': {'size': -3, 'sha256': '" + hex + "'}");
        QTest::newRow("fractional serial")
            << json("{'serial': 1.5, 'expires': '2030-01-01T00:00:00Z', 'files': {}}");
        QTest::newRow("no expiry") << json("{'serial': 1, 'files': {}}");
        QTest::newRow("not JSON") << QByteArray("serial=1");
    }
    void documentRefusesMalformed()
    {
        QFETCH(QByteArray, json);
        ChannelDocument document;
        QVERIFY(!Morvantix::ReadChannelDocument(json, document));
    }

    void check_data()
    {
        QTest::addColumn<QByteArray>("publicKey");
        QTest::addColumn<QByteArray>("document");
        QTest::addColumn<QByteArray>("signature");
        QTest::addColumn<QDateTime>("now");
        QTest::addColumn<quint64>("lastSerial");
        QTest::addColumn<Verdict>("verdict");
        const auto row = [this](const char* name, const QByteArray& document, const QByteArray& signature,
                             Verdict verdict, const QDateTime& now = kNow, quint64 lastSerial = 0) {
            QTest::newRow(name) << m_keys.publicKey << document << signature << now << lastSerial << verdict;
        };
        const quint64 serial = quint64(kNow.toSecsSinceEpoch());
        QByteArray changed = m_document;
        changed.replace("\"size\": 3", "\"size\": 4");
        row("as published", m_document, m_signature, Verdict::Trusted);
        row("same serial again", m_document, m_signature, Verdict::Trusted, kNow, serial);
        row("line end of another system", m_document, m_signature.trimmed() + "\r\n", Verdict::Trusted);
        row("rolled back", m_document, m_signature, Verdict::RolledBack, kNow, serial + 1);
        row("expired", m_document, m_signature, Verdict::Expired, kNow.addDays(30));
        row("list changed", changed, m_signature, Verdict::BadSignature);
        row("another key", m_document, signBytes(m_otherKeys.secret, m_document), Verdict::BadSignature);
        row("no signature", m_document, QByteArray(), Verdict::NoSignature);
        row("truncated signature", m_document, m_signature.left(60), Verdict::NoSignature);
        row("oversized signature", m_document, m_signature + QByteArray(200, ' '), Verdict::NoSignature);
        row("too large", m_document + QByteArray(ChannelTrust::kMaxDocumentBytes, ' '), m_signature,
            Verdict::TooLarge);
        row("signed but unreadable", "[]", signBytes(m_keys.secret, "[]"), Verdict::Unreadable);
        QTest::newRow("no key") << QByteArray() << m_document << m_signature << kNow << quint64(0)
                                << Verdict::NoKey;
    }
    void check()
    {
        QFETCH(QByteArray, publicKey);
        QFETCH(QByteArray, document);
        QFETCH(QByteArray, signature);
        QFETCH(QDateTime, now);
        QFETCH(quint64, lastSerial);
        QFETCH(Verdict, verdict);
        ChannelTrust trust(publicKey);
        QCOMPARE(trust.check(document, signature, now, lastSerial), verdict);
        QCOMPARE(trust.isTrusted(), verdict == Verdict::Trusted);
        QCOMPARE(trust.failureText().isEmpty(), verdict == Verdict::Trusted);
        // Nothing matches through a list that was refused.
        QCOMPARE(trust.matches("info.json", "{}\n"), verdict == Verdict::Trusted);
    }

    void matchesOnlyTheSignedBytes_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<bool>("match");
        const QByteArray package = TestFiles::patternBytes(70000);
        QByteArray flipped = package;
        flipped[5000] = char(flipped[5000] ^ 1);
        QTest::newRow("document") << "manifest.txt" << QByteArray("1.0.0.1\n") << true;
        QTest::newRow("document changed") << "manifest.txt" << QByteArray("1.0.0.2\n") << false;
        QTest::newRow("package") << "full/1.0.0.1/full_1.0.0.1.7z" << package << true;
        QTest::newRow("package one bit off") << "full/1.0.0.1/full_1.0.0.1.7z" << flipped << false;
        QTest::newRow("package longer") << "full/1.0.0.1/full_1.0.0.1.7z" << package + "x" << false;
        QTest::newRow("not listed") << "1.0.0.1/manifest.txt" << QByteArray() << false;
    }
    void matchesOnlyTheSignedBytes()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, bytes);
        QFETCH(bool, match);
        ChannelTrust trust(m_keys.publicKey);
        QCOMPARE(trust.check(m_document, m_signature, kNow, 0), Verdict::Trusted);
        QCOMPARE(trust.matches(path, bytes), match);
        QCOMPARE(trust.listedSize(path) >= 0, path != "1.0.0.1/manifest.txt");
    }

    void fileDigestStopsAtItsLimit()
    {
        const QString path = m_root + "/full/1.0.0.1/full_1.0.0.1.7z";
        QString hex;
        qint64 size = 0;
        QVERIFY(Sha256Hasher::HexDigestOfFile(path, 70000, hex, size));
        QCOMPARE(hex, Sha256Hasher::HexDigest(TestFiles::patternBytes(70000)));
        QVERIFY(!Sha256Hasher::HexDigestOfFile(path, 69999, hex, size));
        QCOMPARE(size, 70000);
        QVERIFY(!Sha256Hasher::HexDigestOfFile(m_root + "/missing", 10, hex, size));
    }

private:
    QTemporaryDir m_dir;
    QString m_root;
    Keys m_keys;
    Keys m_otherKeys;
    QByteArray m_document;
    QByteArray m_signature;
};

CORE_TEST_CLASS(TestChannelTrust)
#include "tst_channeltrust.moc"

#include "TestRegistry.h"

#include "files/QFileUtils.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

#include <zlib.h>

namespace {

void writeFile(const QString& path, const QByteArray& data)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(data);
}

QByteArray randomBytes(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator gen(size);
    for (char& c : data)
        c = static_cast<char>(gen.bounded(256));
    return data;
}

// A second process that holds the file open until it is killed.
class FileHolder
{
public:
    explicit FileHolder(const QString& path)
    {
        m_process.start(QStringLiteral("sh"),
            { QStringLiteral("-c"), QStringLiteral("exec 3<\"$0\"; echo ready; exec sleep 60"), path });
        m_process.waitForReadyRead(5000);
    }
    ~FileHolder()
    {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
    bool holding() { return m_process.state() == QProcess::Running; }

private:
    QProcess m_process;
};

} // namespace

class TestFileUtils : public QObject
{
    Q_OBJECT
private slots:
    void pathHelpers_data();
    void pathHelpers();
    void ignoreFile_data();
    void ignoreFile();

    void existenceAndSize();
    void createFolderReportsWhetherItWasMissing();
    void deleteFileOrFolder_data();
    void deleteFileOrFolder();
    void deleteKeepingOneEntry();
    void copyAndMoveOneFile_data();
    void copyAndMoveOneFile();
    void copyAndMoveTrees_data();
    void copyAndMoveTrees();
    void fileListUnderDir();

    void md5_data();
    void md5();
    void crc32_data();
    void crc32();
    void readAndWrite();

    void fileIsUsing_data();
    void fileIsUsing();

private:
    QTemporaryDir m_dir;
};

void TestFileUtils::pathHelpers_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<QString>("expected");
    QTest::addRow("combine: backslashes, leading slash") << "combine"
                                                         << "a\\b"
                                                         << "/c"
                                                         << "a/b/c";
    QTest::addRow("combine: one leading slash dropped") << "combine"
                                                        << "a/"
                                                        << "//c"
                                                        << "a//c";
    QTest::addRow("combine: empty base") << "combine"
                                         << ""
                                         << "x"
                                         << "/x";
    QTest::addRow("combine: url") << "combine"
                                  << "http://h:9099"
                                  << "ch/1.0.0.2"
                                  << "http://h:9099/ch/1.0.0.2";
    QTest::addRow("combine: chinese") << "combine"
                                      << "D:\\游戏"
                                      << "\\缓存\\a.7z"
                                      << "D:/游戏/缓存/a.7z";
    QTest::addRow("parent: file") << "parent"
                                  << "C:/a/b/f.txt"
                                  << ""
                                  << "C:/a/b/";
    QTest::addRow("parent: trailing slash") << "parent"
                                            << "a/b/"
                                            << ""
                                            << "a/";
    QTest::addRow("parent: several separators") << "parent"
                                                << "a/b\\\\//"
                                                << ""
                                                << "a/";
    QTest::addRow("parent: later backslash") << "parent"
                                             << "C:/a\\b\\f.txt"
                                             << ""
                                             << "C:/a\\b\\";
    QTest::addRow("parent: bare name") << "parent"
                                       << "name"
                                       << ""
                                       << "name";
    QTest::addRow("parent: empty") << "parent"
                                   << ""
                                   << ""
                                   << "";
    QTest::addRow("relative: windows path") << "relative"
                                            << "C:/game"
                                            << "C:\\game\\x\\y.txt"
                                            << "x/y.txt";
    QTest::addRow("relative: base not found") << "relative"
                                              << "D:/o"
                                              << "C:\\game\\x.txt"
                                              << "C:/game/x.txt";
    QTest::addRow("relative: last occurrence") << "relative"
                                               << "/g"
                                               << "/g/a/g/b"
                                               << "b";
    QTest::addRow("relative: case-sensitive") << "relative"
                                              << "C:/Game"
                                              << "C:/game/x"
                                              << "C:/game/x";
}

void TestFileUtils::pathHelpers()
{
    QFETCH(QString, function);
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(QString, expected);
    if (function == QLatin1String("combine"))
        QCOMPARE(QFileUtils::CombinePath(a, b), expected);
    else if (function == QLatin1String("parent"))
        QCOMPARE(QFileUtils::GetParentPath(a), expected);
    else
        QCOMPARE(QFileUtils::AbsoluteToRelativePath(a, b), expected);
}

void TestFileUtils::ignoreFile_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QVector<QString>>("suffixes");
    QTest::addColumn<bool>("ignored");
    QTest::addRow("empty list") << "a.pak" << QVector<QString>() << false;
    QTest::addRow("match") << "dir/a.pak" << QVector<QString> { "log", "pak" } << true;
    QTest::addRow("case-sensitive") << "a.PAK" << QVector<QString> { "pak" } << false;
    QTest::addRow("last suffix only") << "a.pak.bak" << QVector<QString> { "pak" } << false;
    QTest::addRow("no suffix") << "Makefile" << QVector<QString> { "" } << true;
}

void TestFileUtils::ignoreFile()
{
    QFETCH(QString, path);
    QFETCH(QVector<QString>, suffixes);
    QFETCH(bool, ignored);
    QCOMPARE(QFileUtils::IsIgnoreFile(path, suffixes), ignored);
}

void TestFileUtils::existenceAndSize()
{
    const QString file = m_dir.filePath(QStringLiteral("exist/文件.bin"));
    writeFile(file, QByteArray(1234, 'x'));
    const QString folder = m_dir.filePath(QStringLiteral("exist"));
    QVERIFY(QFileUtils::IsFileExist(file));
    QVERIFY(!QFileUtils::IsFileExist(folder));
    QVERIFY(QFileUtils::IsDirExist(folder));
    QVERIFY(!QFileUtils::IsDirExist(file));
    QVERIFY(!QFileUtils::IsFileExist(QString()));
    QCOMPARE(QFileUtils::GetFileSize(file), qint64(1234));
    QCOMPARE(QFileUtils::GetFileSize(folder), qint64(0));
    QCOMPARE(QFileUtils::GetFileSize(m_dir.filePath(QStringLiteral("missing"))), qint64(0));
    QCOMPARE(QFileUtils::GetFileSize(QString()), qint64(0));

    QVERIFY(!QFileUtils::IsDirEmpty(folder));
    QVERIFY(QFileUtils::IsDirEmpty(m_dir.filePath(QStringLiteral("missing"))));
    writeFile(m_dir.filePath(QStringLiteral("hiddenOnly/.hidden")), "h");
    QVERIFY(QFileUtils::IsDirEmpty(m_dir.filePath(QStringLiteral("hiddenOnly"))));
}

void TestFileUtils::createFolderReportsWhetherItWasMissing()
{
    const QString path = m_dir.filePath(QStringLiteral("create/深/deep"));
    QVERIFY(QFileUtils::CreateFolder(path));
    QVERIFY(QDir(path).exists());
    QVERIFY(!QFileUtils::CreateFolder(path));
}

void TestFileUtils::deleteFileOrFolder_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<bool>("expected");
    QTest::addRow("empty path") << QString() << false;
    QTest::addRow("missing") << "del/missing" << false;
    QTest::addRow("file") << "del/f.txt" << true;
    QTest::addRow("folder with content") << "del/tree" << true;
    QTest::addRow("chinese folder") << "del/游戏" << true;
}

void TestFileUtils::deleteFileOrFolder()
{
    QFETCH(QString, target);
    QFETCH(bool, expected);
    writeFile(m_dir.filePath(QStringLiteral("del/f.txt")), "f");
    writeFile(m_dir.filePath(QStringLiteral("del/tree/a/b.txt")), "b");
    writeFile(m_dir.filePath(QStringLiteral("del/游戏/存档.sav")), "s");
    const QString path = target.isEmpty() ? target : m_dir.filePath(target);
    QCOMPARE(QFileUtils::DeleteFileOrFolder(path), expected);
    if (!path.isEmpty())
        QVERIFY(!QFileInfo::exists(path));
    QDir(m_dir.filePath(QStringLiteral("del"))).removeRecursively();
}

void TestFileUtils::deleteKeepingOneEntry()
{
    const QString root = m_dir.filePath(QStringLiteral("keep"));
    writeFile(root + QStringLiteral("/manifest.txt"), "m");
    writeFile(root + QStringLiteral("/a.pak"), "a");
    writeFile(root + QStringLiteral("/sub/b.pak"), "b");
    writeFile(root + QStringLiteral("/.hidden"), "h");
    QVERIFY(QFileUtils::DeleteFileOrFolder(root, QStringLiteral("manifest.txt")));
    QCOMPARE(QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList { QStringLiteral("manifest.txt") });
    // Nothing else left to delete is still a success.
    QVERIFY(QFileUtils::DeleteFileOrFolder(root, QStringLiteral("manifest.txt")));
    QVERIFY(QFileUtils::DeleteFileOrFolder(root, QString()));
    QVERIFY(!QDir(root).exists());
    QVERIFY(!QFileUtils::DeleteFileOrFolder(QString(), QStringLiteral("x")));
}

void TestFileUtils::copyAndMoveOneFile_data()
{
    QTest::addColumn<bool>("move");
    QTest::addColumn<QString>("from");
    QTest::addColumn<QString>("to");
    QTest::addColumn<bool>("expected");
    for (bool move : { false, true }) {
        const char* kind = move ? "move" : "copy";
        QTest::addRow("%s to new parent", kind) << move << "one/src.bin"
                                                << "one/new/dir/dst.bin" << true;
        QTest::addRow("%s over existing", kind) << move << "one/src.bin"
                                                << "one/existing.bin" << true;
        QTest::addRow("%s chinese names", kind) << move << "one/src.bin"
                                                << "one/目标/文件.bin" << true;
        QTest::addRow("%s same path", kind) << move << "one/src.bin"
                                            << "one/src.bin" << true;
        QTest::addRow("%s missing source", kind) << move << "one/missing.bin"
                                                 << "one/x.bin" << false;
    }
}

void TestFileUtils::copyAndMoveOneFile()
{
    QFETCH(bool, move);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(bool, expected);
    const QByteArray content = randomBytes(5000);
    writeFile(m_dir.filePath(QStringLiteral("one/src.bin")), content);
    writeFile(m_dir.filePath(QStringLiteral("one/existing.bin")), "old content");
    const QString source = m_dir.filePath(from);
    const QString target = m_dir.filePath(to);

    const bool ok = move ? QFileUtils::MoveOneFile(source, target) : QFileUtils::CopyOneFile(source, target);
    QCOMPARE(ok, expected);
    if (expected) {
        QCOMPARE(QFileUtils::ReadBytes(target), content);
        QCOMPARE(QFile::exists(source), !move || source == target);
    }
    QDir(m_dir.filePath(QStringLiteral("one"))).removeRecursively();
}

void TestFileUtils::copyAndMoveTrees_data()
{
    QTest::addColumn<bool>("move");
    QTest::addRow("copy") << false;
    QTest::addRow("move") << true;
}

void TestFileUtils::copyAndMoveTrees()
{
    QFETCH(bool, move);
    const QString from = m_dir.filePath(QStringLiteral("tree/from"));
    const QString to = m_dir.filePath(QStringLiteral("tree/to"));
    writeFile(from + QStringLiteral("/a.txt"), "a");
    writeFile(from + QStringLiteral("/sub/b.txt"), "b");
    writeFile(from + QStringLiteral("/sub/深/c.txt"), "c");
    writeFile(to + QStringLiteral("/a.txt"), "stale");

    QVERIFY(move ? QFileUtils::MoveMultiFiles(from, to) : QFileUtils::CopyMultiFiles(from, to));
    QCOMPARE(QFileUtils::ReadBytes(to + QStringLiteral("/a.txt")), QByteArray("a"));
    QCOMPARE(QFileUtils::ReadBytes(to + QStringLiteral("/sub/b.txt")), QByteArray("b"));
    QCOMPARE(QFileUtils::ReadBytes(to + QStringLiteral("/sub/深/c.txt")), QByteArray("c"));
    QCOMPARE(QFile::exists(from + QStringLiteral("/sub/b.txt")), !move);
    // The move leaves the emptied source folders in place.
    QVERIFY(QDir(from + QStringLiteral("/sub/深")).exists());

    // A target whose parent is missing cannot be made with a one-level mkdir.
    QVERIFY(!QFileUtils::CopyMultiFiles(to, m_dir.filePath(QStringLiteral("tree/no/such/place"))));
    QDir(m_dir.filePath(QStringLiteral("tree"))).removeRecursively();
}

void TestFileUtils::fileListUnderDir()
{
    const QString root = m_dir.filePath(QStringLiteral("list"));
    writeFile(root + QStringLiteral("/b.txt"), "b");
    writeFile(root + QStringLiteral("/a/c.txt"), "c");
    writeFile(root + QStringLiteral("/.hidden"), "h");
    writeFile(root + QStringLiteral("/.hiddenDir/d.txt"), "d");
    QStringList out { QStringLiteral("kept") };
    QFileUtils::getFileListUnderDir(root, out);
    QStringList expected { QStringLiteral("kept"), QDir(root).absoluteFilePath(QStringLiteral("a/c.txt")),
        QDir(root).absoluteFilePath(QStringLiteral("b.txt")) };
    QCOMPARE(out, expected);

    QStringList none;
    QFileUtils::getFileListUnderDir(m_dir.filePath(QStringLiteral("missing")), none);
    QFileUtils::getFileListUnderDir(QString(), none);
    QVERIFY(none.isEmpty());
    QDir(root).removeRecursively();
}

void TestFileUtils::md5_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("name");
    QTest::addRow("empty") << QByteArray() << "e.bin";
    QTest::addRow("abc") << QByteArray("abc") << "abc.bin";
    QTest::addRow("one block") << randomBytes(4096) << "4096.bin";
    QTest::addRow("block plus one") << randomBytes(4097) << "4097.bin";
    QTest::addRow("several MiB") << randomBytes(3 * 1024 * 1024 + 17) << "big.bin";
    QTest::addRow("chinese path") << QByteArray("游戏") << "补丁/文件.bin";
}

void TestFileUtils::md5()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, name);
    const QString path = m_dir.filePath(QStringLiteral("md5/") + name);
    writeFile(path, content);
    const QString expected
        = QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    QCOMPARE(QFileUtils::GetFileMD5(path), expected);
    if (content.isEmpty())
        QCOMPARE(expected, QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
}

void TestFileUtils::crc32_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<uint>("expected");
    QTest::addRow("empty") << QByteArray() << 0u;
    QTest::addRow("check value") << QByteArray("123456789") << 0xCBF43926u;
    const QByteArray big = randomBytes(2 * 1048576 + 5);
    QTest::addRow("across blocks") << big
                                   << uint(::crc32(0, reinterpret_cast<const Bytef*>(big.constData()),
                                          static_cast<uInt>(big.size())));
}

void TestFileUtils::crc32()
{
    QFETCH(QByteArray, content);
    QFETCH(uint, expected);
    const QString path = m_dir.filePath(QStringLiteral("crc.bin"));
    writeFile(path, content);
    QCOMPARE(QFileUtils::GetFileCRC32(path), expected);
}

void TestFileUtils::readAndWrite()
{
    const QString missing = m_dir.filePath(QStringLiteral("rw/missing.txt"));
    QVERIFY(QFileUtils::ReadBytes(missing).isEmpty());
    QCOMPARE(QFileUtils::ReadText(missing), QStringLiteral(""));
    QVERIFY(QFileUtils::GetFileMD5(missing).isNull());
    QVERIFY(QFileUtils::GetFileMD5(m_dir.path()).isNull());
    QCOMPARE(QFileUtils::GetFileCRC32(missing), 0u);

    const QString text = QStringLiteral("版本 1.0.0.2\n");
    const QString plain = m_dir.filePath(QStringLiteral("rw/新/plain.txt"));
    QFileUtils::WriteText(plain, text);
    QCOMPARE(QFileUtils::ReadBytes(plain), text.toUtf8());
    QCOMPARE(QFileUtils::ReadText(plain), text);

    QFileUtils::WriteText(plain, QString());
    QCOMPARE(QFileUtils::ReadText(plain), text); // an empty text writes nothing

    const QString bom = m_dir.filePath(QStringLiteral("rw/bom.txt"));
    QFileUtils::WriteUTF8(bom, text, true);
    QCOMPARE(QFileUtils::ReadBytes(bom), QByteArray("\xEF\xBB\xBF") + text.toUtf8());
    QFileUtils::WriteUTF8(bom, text, false);
    QCOMPARE(QFileUtils::ReadBytes(bom), text.toUtf8());

    QVERIFY(QFileUtils::WriteBytes(m_dir.filePath(QStringLiteral("rw/deep/er/b.bin")), "bytes"));
    QVERIFY(!QFileUtils::WriteBytes(m_dir.filePath(QStringLiteral("rw/deep")), "a folder"));
    QVERIFY(!QFileUtils::WriteBytes(QString(), "no path"));
}

void TestFileUtils::fileIsUsing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("heldByOther");
    QTest::addColumn<bool>("expected");
    QTest::addRow("free file") << "free.pak" << false << false;
    QTest::addRow("held by another process") << "held.pak" << true << true;
    QTest::addRow("held, chinese name") << "游戏/存档.pak" << true << true;
    QTest::addRow("missing file") << "" << false << false;
}

void TestFileUtils::fileIsUsing()
{
    QFETCH(QString, name);
    QFETCH(bool, heldByOther);
    QFETCH(bool, expected);
    const QString path = m_dir.filePath(name.isEmpty() ? QStringLiteral("nothing/here.pak") : name);
    if (!name.isEmpty())
        writeFile(path, "data");
    if (heldByOther) {
        FileHolder holder(path);
        QVERIFY(holder.holding());
        QCOMPARE(QFileUtils::FileIsUsing(path), expected);
    } else {
        QCOMPARE(QFileUtils::FileIsUsing(path), expected);
    }
    // Once released, nobody holds it any more, and probing does not itself leave it held.
    QVERIFY(!QFileUtils::FileIsUsing(path));
    QVERIFY(!QFileUtils::FileIsUsing(m_dir.path()));
}

CORE_TEST_CLASS(TestFileUtils)
#include "tst_fileutils.moc"

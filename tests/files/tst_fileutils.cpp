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

void textRow(
    const char* name, const char* function, const QString& a, const QString& b, const QString& expected)
{
    QTest::newRow(name) << QString::fromLatin1(function) << a << b << expected;
}

} // namespace

class TestFileUtils : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void pathHelpers_data();
    void pathHelpers();
    void badInputGetsDefinedAnswer_data();
    void badInputGetsDefinedAnswer();
    void deleteFolderKeepingOneEntry();
    void copyAndMoveOneFile_data();
    void copyAndMoveOneFile();
    void copyAndMoveTrees_data();
    void copyAndMoveTrees();
    void fileListSkipsHiddenAndKeepsOutput();
    void hashes_data();
    void hashes();
    void textWrites();
    void fileIsUsing_data();
    void fileIsUsing();

private:
    QString path(const QString& name) const
    {
        return m_root.isEmpty() ? name : m_root + QLatin1Char('/') + name;
    }

    QTemporaryDir m_dir;
    QString m_root;
};

void TestFileUtils::init()
{
    // A fresh folder per test function and per row.
    m_root = m_dir.filePath(QString::fromLatin1(QTest::currentTestFunction()) + QLatin1Char('-')
        + QString::number(QRandomGenerator::global()->generate()));
    QDir().mkpath(m_root);
}

void TestFileUtils::pathHelpers_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<QString>("expected");
    textRow("combine: backslashes, leading slash", "combine", "a\\b", "/c", "a/b/c");
    textRow("combine: one leading slash dropped", "combine", "a/", "//c", "a//c");
    textRow("combine: empty base", "combine", "", "x", "/x");
    textRow("combine: url", "combine", "http://h:9099", "ch/1.0.0.2", "http://h:9099/ch/1.0.0.2");
    textRow("combine: chinese", "combine", "D:\\游戏", "\\缓存\\a.7z", "D:/游戏/缓存/a.7z");
    textRow("parent: file", "parent", "C:/a/b/f.txt", "", "C:/a/b/");
    textRow("parent: trailing slash", "parent", "a/b/", "", "a/");
    textRow("parent: several separators", "parent", "a/b\\\\//", "", "a/");
    textRow("parent: later backslash", "parent", "C:/a\\b\\f.txt", "", "C:/a\\b\\");
    textRow("parent: bare name", "parent", "name", "", "name");
    textRow("parent: empty", "parent", "", "", "");
    textRow("relative: windows path", "relative", "C:/game", "C:\\game\\x\\y.txt", "x/y.txt");
    textRow("relative: base not found", "relative", "D:/o", "C:\\game\\x.txt", "C:/game/x.txt");
    textRow("relative: last occurrence", "relative", "/g", "/g/a/g/b", "b");
    textRow("relative: case-sensitive", "relative", "C:/Game", "C:/game/x", "C:/game/x");
    textRow("ignore: empty list", "ignore", "a.pak", "", "false");
    textRow("ignore: match", "ignore", "dir/a.pak", "log,pak", "true");
    textRow("ignore: case-sensitive", "ignore", "a.PAK", "pak", "false");
    textRow("ignore: last suffix only", "ignore", "a.pak.bak", "pak", "false");
}

void TestFileUtils::pathHelpers()
{
    QFETCH(QString, function);
    QFETCH(QString, a);
    QFETCH(QString, b);
    QFETCH(QString, expected);
    QString actual;
    if (function == QLatin1String("combine"))
        actual = QFileUtils::CombinePath(a, b);
    else if (function == QLatin1String("parent"))
        actual = QFileUtils::GetParentPath(a);
    else if (function == QLatin1String("relative"))
        actual = QFileUtils::AbsoluteToRelativePath(a, b);
    else
        actual = QFileUtils::IsIgnoreFile(
                     a, b.isEmpty() ? QVector<QString>() : b.split(QLatin1Char(',')).toVector())
            ? QStringLiteral("true")
            : QStringLiteral("false");
    QCOMPARE(actual, expected);
}

// Each function against an empty path, a missing file, a folder where a file is expected and a
// real file with a Chinese name: every answer is defined and nothing crashes.
void TestFileUtils::badInputGetsDefinedAnswer_data()
{
    QTest::addColumn<QString>("function");
    QTest::addColumn<QString>("a");
    QTest::addColumn<QString>("b");
    QTest::addColumn<QString>("expected");
    const char* functions[]
        = { "size", "isFile", "isDir", "dirEmpty", "md5", "crc", "read", "delete", "create", "write" };
    const char* expected[][4] = {
        // empty         missing        folder         file 游戏.bin
        { "0", "0", "0", "4" }, // size
        { "false", "false", "false", "true" }, // isFile
        { "false", "false", "true", "false" }, // isDir
        { "true", "true", "false", "true" }, // dirEmpty (a file lists nothing)
        { "<null>", "<null>", "<null>", "098f6bcd4621d373cade4e832627b4f6" }, // md5
        { "0", "0", "0", "d87f7e0c" }, // crc
        { "", "", "", "test" }, // read
        { "false", "false", "true", "true" }, // delete
        { "false", "true", "false", "true" }, // create: was it missing?
        { "false", "true", "false", "true" }, // write
    };
    const char* targets[] = { "empty", "missing", "folder", "file" };
    for (int f = 0; f < 10; ++f)
        for (int t = 0; t < 4; ++t)
            QTest::addRow("%s: %s", functions[f], targets[t])
                << QString::fromLatin1(functions[f]) << QString::fromLatin1(targets[t]) << QString()
                << QString::fromLatin1(expected[f][t]);
}

void TestFileUtils::badInputGetsDefinedAnswer()
{
    QFETCH(QString, function);
    QFETCH(QString, a);
    QFETCH(QString, expected);
    writeFile(path(QStringLiteral("folder/inside.bin")), "x");
    writeFile(path(QStringLiteral("游戏.bin")), "test");
    const QMap<QString, QString> targets { { "empty", QString() },
        { "missing", path(QStringLiteral("missing/none.bin")) }, { "folder", path(QStringLiteral("folder")) },
        { "file", path(QStringLiteral("游戏.bin")) } };
    const QString target = targets.value(a);
    const auto text = [](bool value) { return value ? QStringLiteral("true") : QStringLiteral("false"); };
    QString actual;
    if (function == QLatin1String("size"))
        actual = QString::number(QFileUtils::GetFileSize(target));
    else if (function == QLatin1String("isFile"))
        actual = text(QFileUtils::IsFileExist(target));
    else if (function == QLatin1String("isDir"))
        actual = text(QFileUtils::IsDirExist(target));
    else if (function == QLatin1String("dirEmpty"))
        actual = text(QFileUtils::IsDirEmpty(target));
    else if (function == QLatin1String("md5"))
        actual = QFileUtils::GetFileMD5(target).isNull() ? QStringLiteral("<null>")
                                                         : QFileUtils::GetFileMD5(target);
    else if (function == QLatin1String("crc"))
        actual = QString::number(QFileUtils::GetFileCRC32(target), 16);
    else if (function == QLatin1String("read"))
        actual = QFileUtils::ReadText(target);
    else if (function == QLatin1String("delete"))
        actual = text(QFileUtils::DeleteFileOrFolder(target));
    else if (function == QLatin1String("create"))
        actual = text(QFileUtils::CreateFolder(target));
    else
        actual = text(QFileUtils::WriteBytes(target, "new"));
    QCOMPARE(actual, expected);
    if (function == QLatin1String("delete") && !target.isEmpty())
        QVERIFY(!QFileInfo::exists(target));
}

void TestFileUtils::deleteFolderKeepingOneEntry()
{
    const QString root = path(QStringLiteral("keep"));
    for (const char* name : { "manifest.txt", "a.pak", "sub/b.pak", ".hidden" })
        writeFile(root + QLatin1Char('/') + QLatin1String(name), "x");
    QVERIFY(QFileUtils::DeleteFileOrFolder(root, QStringLiteral("manifest.txt")));
    QCOMPARE(QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
        QStringList { QStringLiteral("manifest.txt") });
    // Nothing else left to delete is still a success; no name to keep removes the folder.
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
        const QString source = QStringLiteral("src.bin");
        QTest::addRow("%s to new parent", kind)
            << move << source << QStringLiteral("new/dir/dst.bin") << true;
        QTest::addRow("%s over existing", kind) << move << source << QStringLiteral("existing.bin") << true;
        QTest::addRow("%s chinese names", kind) << move << source << QStringLiteral("目标/文件.bin") << true;
        QTest::addRow("%s same path", kind) << move << source << source << true;
        QTest::addRow("%s missing source", kind) << move << QStringLiteral("none.bin") << source << false;
    }
}

void TestFileUtils::copyAndMoveOneFile()
{
    QFETCH(bool, move);
    QFETCH(QString, from);
    QFETCH(QString, to);
    QFETCH(bool, expected);
    const QByteArray content = randomBytes(5000);
    writeFile(path(QStringLiteral("src.bin")), content);
    writeFile(path(QStringLiteral("existing.bin")), "old content");
    const QString source = path(from);
    const QString target = path(to);

    QCOMPARE(
        move ? QFileUtils::MoveOneFile(source, target) : QFileUtils::CopyOneFile(source, target), expected);
    if (expected) {
        QCOMPARE(QFileUtils::ReadBytes(target), content);
        QCOMPARE(QFile::exists(source), !move || source == target);
    }
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
    const QString from = path(QStringLiteral("from"));
    const QString to = path(QStringLiteral("to"));
    const QStringList files { QStringLiteral("a.txt"), QStringLiteral("sub/b.txt"),
        QStringLiteral("sub/深/c.txt") };
    for (const QString& file : files)
        writeFile(from + QLatin1Char('/') + file, file.toUtf8());
    writeFile(to + QStringLiteral("/a.txt"), "stale");
    QVERIFY(QFile::link(from, from + QStringLiteral("/sub/up"))); // a cycle: copied as a link, not walked

    QVERIFY(move ? QFileUtils::MoveMultiFiles(from, to) : QFileUtils::CopyMultiFiles(from, to));
    for (const QString& file : files) {
        QCOMPARE(QFileUtils::ReadBytes(to + QLatin1Char('/') + file), file.toUtf8());
        QCOMPARE(QFile::exists(from + QLatin1Char('/') + file), !move);
    }
    QCOMPARE(QFileInfo(to + QStringLiteral("/sub/up")).symLinkTarget(), from);
    // The move leaves the emptied source folders in place.
    QVERIFY(QDir(from + QStringLiteral("/sub/深")).exists());
    // A target whose parent is missing cannot be made with a one-level mkdir.
    QVERIFY(!QFileUtils::CopyMultiFiles(to, path(QStringLiteral("no/such/place"))));
}

void TestFileUtils::fileListSkipsHiddenAndKeepsOutput()
{
    for (const char* name : { "b.txt", "a/c.txt", ".hidden", ".hiddenDir/d.txt" })
        writeFile(path(QString::fromUtf8(name)), "x");
    QStringList out { QStringLiteral("kept") };
    QFileUtils::getFileListUnderDir(m_root, out);
    QCOMPARE(out,
        (QStringList {
            QStringLiteral("kept"), path(QStringLiteral("a/c.txt")), path(QStringLiteral("b.txt")) }));

    QStringList none;
    QFileUtils::getFileListUnderDir(path(QStringLiteral("missing")), none);
    QFileUtils::getFileListUnderDir(QString(), none);
    QVERIFY(none.isEmpty());
}

void TestFileUtils::hashes_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addRow("empty") << QByteArray();
    QTest::addRow("check value") << QByteArray("123456789");
    QTest::addRow("one MD5 block") << randomBytes(4096);
    QTest::addRow("block plus one") << randomBytes(4097);
    QTest::addRow("across CRC blocks") << randomBytes(3 * 1048576 + 17);
}

void TestFileUtils::hashes()
{
    QFETCH(QByteArray, content);
    const QString file = path(QStringLiteral("补丁/文件.bin"));
    writeFile(file, content);
    QCOMPARE(QFileUtils::GetFileMD5(file),
        QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex()));
    QCOMPARE(QFileUtils::GetFileCRC32(file),
        uint(::crc32(0, reinterpret_cast<const Bytef*>(content.constData()), uInt(content.size()))));
    if (content.isEmpty())
        QCOMPARE(QFileUtils::GetFileMD5(file), QStringLiteral("d41d8cd98f00b204e9800998ecf8427e"));
    if (content == "123456789")
        QCOMPARE(QFileUtils::GetFileCRC32(file), 0xCBF43926u);
}

void TestFileUtils::textWrites()
{
    const QString text = QStringLiteral("版本 1.0.0.2\n");
    const QString plain = path(QStringLiteral("新/plain.txt"));
    QFileUtils::WriteText(plain, text);
    QCOMPARE(QFileUtils::ReadBytes(plain), text.toUtf8());
    QCOMPARE(QFileUtils::ReadText(plain), text);
    QFileUtils::WriteText(plain, QString());
    QCOMPARE(QFileUtils::ReadText(plain), text); // an empty text writes nothing

    const QString bom = path(QStringLiteral("bom.txt"));
    QFileUtils::WriteUTF8(bom, text, true);
    QCOMPARE(QFileUtils::ReadBytes(bom), QByteArray("\xEF\xBB\xBF") + text.toUtf8());
    QFileUtils::WriteUTF8(bom, text, false);
    QCOMPARE(QFileUtils::ReadBytes(bom), text.toUtf8());
}

void TestFileUtils::fileIsUsing_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("held");
    QTest::addRow("free file") << QStringLiteral("free.pak") << false;
    QTest::addRow("held by another process") << QStringLiteral("held.pak") << true;
    QTest::addRow("held, chinese name") << QStringLiteral("游戏/存档.pak") << true;
}

void TestFileUtils::fileIsUsing()
{
    QFETCH(QString, name);
    QFETCH(bool, held);
    const QString file = path(name);
    writeFile(file, "data");
    if (held) {
        QProcess holder;
        holder.start(QStringLiteral("sh"),
            { QStringLiteral("-c"), QStringLiteral("exec 3<\"$0\"; echo ready; exec sleep 60"), file });
        QVERIFY(holder.waitForReadyRead(5000));
        QVERIFY(QFileUtils::FileIsUsing(file));
        holder.kill();
        holder.waitForFinished(5000);
    }
    // Once released nobody holds it, and probing does not itself leave it held.
    QVERIFY(!QFileUtils::FileIsUsing(file));
    QVERIFY(!QFileUtils::FileIsUsing(file));
    QVERIFY(!QFileUtils::FileIsUsing(path(QStringLiteral("missing.pak"))));
    QVERIFY(!QFileUtils::FileIsUsing(m_root));
}

CORE_TEST_CLASS(TestFileUtils)
#include "tst_fileutils.moc"

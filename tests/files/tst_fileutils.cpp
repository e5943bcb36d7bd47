#include "TestFiles.h"
#include "TestRegistry.h"

#include "files/QFileUtils.h"

#include <QTemporaryDir>
#include <QtTest>

#include <zlib.h>

#include <functional>
#include <memory>

using TestFiles::writeFile;

namespace {

QString text(bool value)
{
    return value ? QStringLiteral("true") : QStringLiteral("false");
}

// A copy or move answers with its result, the target's text and whether the source is still there.
QString transferred(bool ok, const QString& from, const QString& to)
{
    return text(ok) + '|' + QFileUtils::ReadText(to) + '|' + text(QFile::exists(from));
}

// Every function under test as text in, text out, so that one table holds their answers.
using Call = std::function<QString(const QString&, const QString&)>;
const QMap<QString, Call>& calls()
{
    using namespace QFileUtils;
    using S = const QString&;
    static const QMap<QString, Call> all {
        { "combine", [](S a, S b) { return CombinePath(a, b); } },
        { "parent", [](S a, S) { return GetParentPath(a); } },
        { "relative", [](S a, S b) { return AbsoluteToRelativePath(a, b); } },
        { "ignore",
            [](S a, S b) { return text(IsIgnoreFile(a, b.split(',', Qt::SkipEmptyParts).toVector())); } },
        { "size", [](S a, S) { return QString::number(GetFileSize(a)); } },
        { "isFile", [](S a, S) { return text(IsFileExist(a)); } },
        { "isDir", [](S a, S) { return text(IsDirExist(a)); } },
        { "dirEmpty", [](S a, S) { return text(IsDirEmpty(a)); } },
        { "md5", [](S a, S) { return GetFileMD5(a).isNull() ? QStringLiteral("<null>") : GetFileMD5(a); } },
        { "crc", [](S a, S) { return QString::number(GetFileCRC32(a), 16); } },
        { "read", [](S a, S) { return ReadText(a); } },
        { "delete", [](S a, S) { return text(DeleteFileOrFolder(a)); } },
        { "create", [](S a, S) { return text(CreateFolder(a)); } }, // was the folder missing?
        { "write", [](S a, S) { return text(WriteBytes(a, "new")); } },
        { "copy", [](S a, S b) { return transferred(CopyOneFile(a, b), a, b); } },
        { "move", [](S a, S b) { return transferred(MoveOneFile(a, b), a, b); } },
        // Asked twice: the probe must not leave the file held itself. Files held by another process are
        // the checker's cases.
        { "inUse", [](S a, S) { return text(FileIsUsing(a) || FileIsUsing(a)); } },
    };
    return all;
}

} // namespace

class TestFileUtils : public QObject
{
    Q_OBJECT
private slots:
    void init() { m_dir.reset(new QTemporaryDir); }

    void answers_data()
    {
        QTest::addColumn<QString>("function");
        QTest::addColumn<QString>("a");
        QTest::addColumn<QString>("b");
        QTest::addColumn<QString>("expected");
        const char* helpers[][4] = {
            { "combine", "a\\b", "/c", "a/b/c" },
            { "combine", "a/", "//c", "a//c" }, // one leading slash dropped
            { "combine", "", "x", "/x" },
            { "combine", "http://h:9099", "ch/1.0.0.2", "http://h:9099/ch/1.0.0.2" },
            { "combine", "D:\\游戏", "\\缓存\\a.7z", "D:/游戏/缓存/a.7z" },
            { "parent", "C:/a/b/f.txt", "", "C:/a/b/" },
            { "parent", "a/b/", "", "a/" },
            { "parent", "a/b\\\\//", "", "a/" },
            { "parent", "C:/a\\b\\f.txt", "", "C:/a\\b\\" },
            { "parent", "name", "", "name" },
            { "parent", "", "", "" },
            { "relative", "C:/game", "C:\\game\\x\\y.txt", "x/y.txt" },
            { "relative", "D:/o", "C:\\game\\x.txt", "C:/game/x.txt" }, // base not found
            { "relative", "/g", "/g/a/g/b", "b" }, // the last occurrence
            { "relative", "C:/Game", "C:/game/x", "C:/game/x" }, // case-sensitive
            { "ignore", "a.pak", "", "false" },
            { "ignore", "dir/a.pak", "log,pak", "true" },
            { "ignore", "a.PAK", "pak", "false" },
            { "ignore", "a.pak.bak", "pak", "false" },
        };
        for (const auto& row : helpers)
            QTest::addRow("%s(%s, %s)", row[0], row[1], row[2]) << row[0] << row[1] << row[2] << row[3];
        // "<name>" is a path in the test folder, which holds "<file>" and "<folder>/inside.bin"; then the
        // answers of a copy and of a move.
        const char* transfers[][4] = {
            { "<file>", "<new/dir/dst.bin>", "true|test|true", "true|test|false" },
            { "<file>", "<folder/inside.bin>", "true|test|true", "true|test|false" },
            { "<file>", "<目标/文件.bin>", "true|test|true", "true|test|false" },
            { "<file>", "<file>", "true|test|true", "true|test|true" },
            { "<missing>", "<file>", "false|test|false", "false|test|false" },
        };
        for (const auto& row : transfers)
            for (int move : { 0, 1 })
                QTest::addRow("%s(%s, %s)", move ? "move" : "copy", row[0], row[1])
                    << (move ? "move" : "copy") << row[0] << row[1] << row[2 + move];

        // Against an empty path, a missing file, a folder where a file is expected and a file with a
        // Chinese name holding "test": every answer is defined and nothing crashes.
        const char* targets[] = { "<empty>", "<missing>", "<folder>", "<file>" };
        const char* probes[][2] = { { "size", "0|0|0|4" }, { "isFile", "false|false|false|true" },
            { "isDir", "false|false|true|false" },
            { "dirEmpty", "true|true|false|true" }, // a file lists nothing
            { "md5", "<null>|<null>|<null>|098f6bcd4621d373cade4e832627b4f6" }, { "crc", "0|0|0|d87f7e0c" },
            { "read", "|||test" }, { "delete", "false|false|true|true" },
            { "create", "false|true|false|true" }, { "write", "false|true|false|true" },
            { "inUse", "false|false|false|false" } };
        for (const auto& probe : probes) {
            const QStringList answers = QString::fromLatin1(probe[1]).split('|');
            for (int t = 0; t < 4; ++t)
                QTest::addRow("%s(%s)", probe[0], targets[t]) << probe[0] << targets[t] << "" << answers[t];
        }
    }
    void answers()
    {
        QFETCH(QString, function);
        QFETCH(QString, a);
        QFETCH(QString, b);
        QFETCH(QString, expected);
        QVERIFY(writeFile(path("folder/inside.bin"), "x") && writeFile(path("游戏.bin"), "test"));
        const QMap<QString, QString> targets { { "<empty>", QString() },
            { "<missing>", path("missing/none.bin") }, { "<folder>", path("folder") },
            { "<file>", path("游戏.bin") } };
        const auto resolve = [&](const QString& arg) {
            return targets.value(arg, arg.startsWith('<') ? path(arg.mid(1).chopped(1)) : arg);
        };
        const QString target = resolve(a);
        QCOMPARE(calls().value(function)(target, resolve(b)), expected);
        if (function == QLatin1String("delete") && !target.isEmpty())
            QVERIFY(!QFileInfo::exists(target));
    }

    // A folder as the repair leaves it: listed without its hidden entries, then emptied but for one.
    void listsAndEmptiesFolder()
    {
        const QString root = path("keep");
        for (const char* name : { "manifest.txt", "a/b.pak", ".hidden", ".hiddenDir/d.txt" })
            QVERIFY(writeFile(root + '/' + name, "x"));
        QStringList out { "kept" };
        QFileUtils::getFileListUnderDir(root, out);
        QCOMPARE(out, (QStringList { "kept", root + "/a/b.pak", root + "/manifest.txt" }));
        QStringList none;
        QFileUtils::getFileListUnderDir(path("missing"), none);
        QFileUtils::getFileListUnderDir(QString(), none);
        QVERIFY(none.isEmpty());

        QVERIFY(QFileUtils::DeleteFileOrFolder(root, "manifest.txt"));
        QCOMPARE(QDir(root).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList { "manifest.txt" });
        // Nothing else left to delete is still a success; no name to keep removes the folder.
        QVERIFY(QFileUtils::DeleteFileOrFolder(root, "manifest.txt"));
        QVERIFY(QFileUtils::DeleteFileOrFolder(root, QString()));
        QVERIFY(!QDir(root).exists());
        QVERIFY(!QFileUtils::DeleteFileOrFolder(QString(), "x"));
    }

    void copyAndMoveTrees_data()
    {
        QTest::addColumn<bool>("move");
        QTest::addRow("copy") << false;
        QTest::addRow("move") << true;
    }
    void copyAndMoveTrees()
    {
        QFETCH(bool, move);
        const QString from = path("from");
        const QString to = path("to");
        const QStringList files { "a.txt", "sub/b.txt", "sub/深/c.txt" };
        for (const QString& file : files)
            QVERIFY(writeFile(from + '/' + file, file.toUtf8()));
        QVERIFY(writeFile(to + "/a.txt", "stale"));
#ifndef Q_OS_WIN // where QFile::link makes a shortcut, a plain file
        QVERIFY(QFile::link(from, from + "/sub/up")); // a cycle: copied as a link, not walked
#endif

        QVERIFY(move ? QFileUtils::MoveMultiFiles(from, to) : QFileUtils::CopyMultiFiles(from, to));
        for (const QString& file : files) {
            QCOMPARE(QFileUtils::ReadBytes(to + '/' + file), file.toUtf8());
            QCOMPARE(QFile::exists(from + '/' + file), !move);
        }
#ifndef Q_OS_WIN
        QCOMPARE(QFileInfo(to + "/sub/up").symLinkTarget(), from);
#endif
        QVERIFY(QDir(from + "/sub/深").exists()); // a move leaves the emptied source folders
        // A target whose parent is missing cannot be made with a one-level mkdir.
        QVERIFY(!QFileUtils::CopyMultiFiles(to, path("no/such/place")));
    }

    void hashes()
    {
        for (int size : { 0, 65536, 65537, 3 * 1048576 + 17 }) { // reads of 64 KiB (MD5) and 1 MiB (CRC)
            const QByteArray content = TestFiles::patternBytes(size);
            QVERIFY(writeFile(path("补丁/文件.bin"), content));
            QCOMPARE(QFileUtils::GetFileMD5(path("补丁/文件.bin")), TestFiles::md5Hex(content));
            QCOMPARE(QFileUtils::GetFileCRC32(path("补丁/文件.bin")),
                uint(::crc32(0, reinterpret_cast<const Bytef*>(content.constData()), uInt(content.size()))));
        }
    }

    void textWrites()
    {
        const QString text = QStringLiteral("版本 1.0.0.2\n");
        const QString file = path("新/plain.txt");
        QFileUtils::WriteText(file, text);
        QCOMPARE(QFileUtils::ReadText(file), text);
        QFileUtils::WriteText(file, QString());
        QCOMPARE(QFileUtils::ReadBytes(file), text.toUtf8()); // an empty text writes nothing
        QFileUtils::WriteUTF8(file, text, true);
        QCOMPARE(QFileUtils::ReadBytes(file), "\xEF\xBB\xBF" + text.toUtf8());
        QFileUtils::WriteUTF8(file, text, false);
        QCOMPARE(QFileUtils::ReadBytes(file), text.toUtf8());
    }

private:
    QString path(const QString& name) const
    {
        return m_dir->filePath(name);
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

CORE_TEST_CLASS(TestFileUtils)
#include "tst_fileutils.moc"

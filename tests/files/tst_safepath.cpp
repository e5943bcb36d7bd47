#include "TestRegistry.h"

#include "files/SafePath.h"

#include <QtTest>

class TestSafePath : public QObject
{
    Q_OBJECT
private slots:
    void decidesUnderRoot_data()
    {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("relative");
        QTest::addColumn<QString>("resolved"); // empty: refused
        QTest::addColumn<bool>("joinedInside"); // root + "/" + relative, taken as it stands
        struct Row
        {
            const char *name, *root, *relative, *resolved;
            bool joinedInside;
        };
        const Row rows[] = {
            { "plain name", "/srv/cache", "a.7z", "/srv/cache/a.7z", true },
            { "backslashes, drive root", "C:\\Games\\", "p\\1.0\\a.7z", "C:/Games/p/1.0/a.7z", true },
            { "dots and doubled separators", "/c/", "./a//b.bin", "/c/a/b.bin", true },
            { "volume root", "/", "x", "/x", true },
            { "drive root", "D:/", "x", "D:/x", true },
            { "name made of dots and more", "/c", "a..b/.x", "/c/a..b/.x", true },
            { "empty", "/c", "", "", true },
            { "only dots", "/c", "./.", "", true },
            { "trailing slash", "/c", "dir/", "", true },
            { "trailing backslash", "/c", "dir\\", "", true },
            { "ends in parent", "/c", "dir/..", "", true },
            { "climbs back in", "/c", "a/../b", "", true },
            { "parents with backslashes", "/i/c", "..\\..\\x.bin", "", false },
            { "parent mid-way", "/c", "a/../../x", "", false },
            { "into a sibling sharing the name", "/c", "../c2/x", "", false },
            { "dots Windows trims", "/c", "a/.../x", "", true },
            { "parent with a blank", "/c", ".. /x", "", true },
            { "absolute", "/c", "/etc/x", "", true },
            { "absolute, backslash", "C:/c", "\\\\host\\share", "", true },
            { "drive letter", "C:/c", "D:x.bin", "", true },
            { "stream of a file", "/c", "x.bin:s", "", true },
            { "no root", "", "a.7z", "", false },
        };
        for (const Row& row : rows)
            QTest::newRow(row.name) << QString::fromUtf8(row.root) << QString::fromUtf8(row.relative)
                                    << QString::fromUtf8(row.resolved) << row.joinedInside;
    }
    void decidesUnderRoot()
    {
        QFETCH(QString, root);
        QFETCH(QString, relative);
        QFETCH(QString, resolved);
        QFETCH(bool, joinedInside);
        QCOMPARE(SafePath::ResolveUnder(root, relative), resolved);
        if (!root.isEmpty())
            QCOMPARE(SafePath::IsSafeRelativePath(relative), !resolved.isEmpty());
        QCOMPARE(SafePath::IsInsideFolder(root, root + '/' + relative), joinedInside);
        QVERIFY(resolved.isEmpty() || SafePath::IsInsideFolder(root, resolved));
    }
};

CORE_TEST_CLASS(TestSafePath)
#include "tst_safepath.moc"

#include "TestRegistry.h"

#include "files/SafePath.h"

#include <QtTest>

class TestSafePath : public QObject
{
    Q_OBJECT
private slots:
    void decidesUnderRoot_data();
    void decidesUnderRoot();
};

void TestSafePath::decidesUnderRoot_data()
{
    QTest::addColumn<QString>("root");
    QTest::addColumn<QString>("relative");
    QTest::addColumn<QString>("resolved"); // empty: refused
    QTest::addColumn<bool>("joinedInside"); // root + "/" + relative, taken as it stands
    QTest::newRow("plain name") << "/srv/cache"
                                << "a.7z"
                                << "/srv/cache/a.7z" << true;
    QTest::newRow("backslashes, drive root") << "C:\\Games\\"
                                             << "p\\1.0\\a.7z"
                                             << "C:/Games/p/1.0/a.7z" << true;
    QTest::newRow("dots and doubled separators") << "/c/"
                                                 << "./a//b.bin"
                                                 << "/c/a/b.bin" << true;
    QTest::newRow("volume root") << "/"
                                 << "x"
                                 << "/x" << true;
    QTest::newRow("name made of dots and more") << "/c"
                                                << "a..b/.x"
                                                << "/c/a..b/.x" << true;
    QTest::newRow("empty") << "/c"
                           << ""
                           << "" << true;
    QTest::newRow("only dots") << "/c"
                               << "./."
                               << "" << true;
    QTest::newRow("trailing slash") << "/c"
                                    << "dir/"
                                    << "" << true;
    QTest::newRow("trailing backslash") << "/c"
                                        << "dir\\"
                                        << "" << true;
    QTest::newRow("ends in parent") << "/c"
                                    << "dir/.."
                                    << "" << true;
    QTest::newRow("climbs back in") << "/c"
                                    << "a/../b"
                                    << "" << true;
    QTest::newRow("parents with backslashes") << "/i/c"
                                              << "..\\..\\x.bin"
                                              << "" << false;
    QTest::newRow("parent mid-way") << "/c"
                                    << "a/../../x"
                                    << "" << false;
    QTest::newRow("into a sibling sharing the name") << "/c"
                                                     << "../c2/x"
                                                     << "" << false;
    QTest::newRow("dots Windows trims") << "/c"
                                        << "a/.../x"
                                        << "" << true;
    QTest::newRow("parent with a blank") << "/c"
                                         << ".. /x"
                                         << "" << true;
    QTest::newRow("absolute") << "/c"
                              << "/etc/x"
                              << "" << true;
    QTest::newRow("absolute, backslash") << "C:/c"
                                         << "\\\\host\\share"
                                         << "" << true;
    QTest::newRow("drive letter") << "C:/c"
                                  << "D:x.bin"
                                  << "" << true;
    QTest::newRow("stream of a file") << "/c" << "x.bin:s" << "" << true;
    QTest::newRow("no root") << ""
                             << "a.7z"
                             << "" << false;
}

void TestSafePath::decidesUnderRoot()
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

CORE_TEST_CLASS(TestSafePath)
#include "tst_safepath.moc"

#include "TestFiles.h"
#include "TestRegistry.h"

#include "files/Md5Hasher.h"
#include "install/ManifestFileInfo.h"
#include "install/PatchInfo.h"

#include <QCryptographicHash>
#include <QtTest>

using namespace Morvantix;

namespace {

// What the writers make of the readers' result, so that each row checks both.
QString readAndWrite(bool patchInfo, const QString& text)
{
    if (patchInfo)
        return WritePatchInfo(ReadPatchInfo(text));
    QStringList lines;
    for (const ManifestFileInfo& info : ReadFileList(text))
        lines << FileListLine(info);
    return lines.join('\n');
}

} // namespace

class TestReaders : public QObject
{
    Q_OBJECT
private slots:
    void readsDocuments_data()
    {
        QTest::addColumn<bool>("patchInfo");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        const auto row = [](const char* name, bool patchInfo, const char* text, const char* expected) {
            QTest::newRow(name) << patchInfo << QString::fromUtf8(text) << QString::fromUtf8(expected);
        };
        row("four fields", false, "a.pak|abc|12|x", "a.pak|abc|12");
        row("two fields, one field", false, "x.bin|abc\ny", "x.bin|abc|0\ny||0");
        row("sizes: 2^64-1, 2^64, -1, unit", false,
            "a||18446744073709551615\nb||18446744073709551616\nc||-1\nd||12kb",
            "a||18446744073709551615\nb||0\nc||0\nd||0");
        row("blanks folded, not trimmed", false, "\t a \t b.pak |abc|  7 \r", "a b.pak |abc|7");
        row("blank lines skipped", false, "\n  \n\t\r\n游戏/存档.pak|1|2\r\n\n", "游戏/存档.pak|1|2");
        row("last line wins, sorted by path", false, "b|1|1\na|1|1\na|2|2", "a|2|2\nb|1|1");

        row("patch: deleted and added under another case", true,
            "--del_file--\nData/A.PAK|1|1\n--new_file--\ndata/a.pak|2|2",
            "--del_file--\n--new_file--\ndata/a.pak|2|2\n--patch_file--\n");
        row("patch: added first, two spellings deleted", true,
            "--new_file--\nA|2|2\n--del_file--\na|1|1\nA|1|1\nb|1|1",
            "--del_file--\nb|1|1\n--new_file--\nA|2|2\n--patch_file--\n");
        row("patch: a changed file does not cancel a delete", true,
            "--del_file--\nx|1|1\n--patch_file--\nx|2|2",
            "--del_file--\nx|1|1\n--new_file--\n--patch_file--\nx|2|2\n");
        row("patch: lines before the first marker dropped", true, "a|1|1\nb\n--new_file--\nc|1|1",
            "--del_file--\n--new_file--\nc|1|1\n--patch_file--\n");
        row("patch: marker with blanks, marker in other case", true,
            "  --new_file--\t\r\n--DEL_FILE--\nx.bin|abc",
            "--del_file--\n--new_file--\n--DEL_FILE--||0\nx.bin|abc|0\n--patch_file--\n");
        row("patch: two patch sections, last line wins", true,
            "--patch_file--\na|1|1\n--new_file--\nb|1|1\n--patch_file--\nc|1|1\na|9|9",
            "--del_file--\n--new_file--\nb|1|1\n--patch_file--\na|9|9\nc|1|1\n");
    }
    void readsDocuments()
    {
        QFETCH(bool, patchInfo);
        QFETCH(QString, text);
        QFETCH(QString, expected);
        QCOMPARE(readAndWrite(patchInfo, text), expected);
    }

    void checksFileLists_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("fault");
        const auto row = [](const char* name, const QString& text, const QString& fault) {
            QTest::newRow(name) << text << fault;
        };
        const QString md5 = "0123456789abcdefABCDEF0123456789";
        const QString notALine = "line 1 is not \"path|md5|size\": ";
        row("well formed, blank lines and CR allowed",
            "a.pak|" + md5 + "|12\r\n\n  \n游戏/b|" + md5 + "|0|extra\n", "");
        row("empty", "", "it lists no file");
        row("only blanks", " \n\t\r\n", "it lists no file");
        row("cut in the MD5", "a|" + md5 + "|1\nb|0123", "line 2 is not \"path|md5|size\": b|0123");
        const QList<QPair<const char*, QString>> badLines { { "cut before the size", "a|" + md5 + "|" },
            { "size not a number", "a|" + md5 + "|12kb" },
            { "MD5 not hexadecimal", "a|" + md5.left(31) + "g|1" }, { "no path", "|" + md5 + "|1" } };
        for (const auto& bad : badLines)
            row(bad.first, bad.second, notALine + bad.second);
        row("an error page, quoted in part",
            "<html>\n<head><title>404 Not Found</title></head>" + QString(100, 'x'), notALine + "<html>");
        row("long line quoted to 80 characters", QString(200, 'y'), notALine + QString(80, 'y'));
    }
    void checksFileLists()
    {
        QFETCH(QString, text);
        QFETCH(QString, fault);
        QCOMPARE(FileListFault(text), fault);
    }

    void anyTextReadsBackThroughTheWriters()
    {
        // Random bytes, and random lines from a vocabulary where markers, bars, odd sizes and case meet.
        const QStringList words { "--del_file--", "--new_file--", "--patch_file--", "|", "Data/A.PAK",
            "data/a.pak", " ", "\r", "\n", "12", "18446744073709551616", "游戏" };
        for (quint32 seed = 1; seed <= 200; ++seed) {
            QString text = QString::fromUtf8(TestFiles::patternBytes(1024, seed));
            for (int i = 0; seed % 2 && i < 300; ++i)
                text += words.at(QRandomGenerator(seed * 1000 + i).bounded(words.size()));
            for (bool patchInfo : { false, true })
                QCOMPARE(
                    readAndWrite(patchInfo, readAndWrite(patchInfo, text)), readAndWrite(patchInfo, text));
        }
    }

    // The verifier's own MD5 against Qt's, at the lengths where padding changes (55, 56, 63, 64) and
    // fed in pieces that straddle its 64-byte blocks.
    void md5MatchesQt_data()
    {
        QTest::addColumn<int>("size");
        QTest::addColumn<int>("piece");
        for (int size : { 0, 1, 55, 56, 63, 64, 65, 119, 120, 128, 1000003 })
            for (int piece : { 1, 7, 64, 100000 })
                QTest::addRow("%d bytes in pieces of %d", size, piece) << size << piece;
    }
    void md5MatchesQt()
    {
        QFETCH(int, size);
        QFETCH(int, piece);
        const QByteArray data = TestFiles::patternBytes(size, quint32(size + piece));
        Md5Hasher hasher;
        for (int at = 0; at < data.size(); at += piece)
            hasher.addData(data.constData() + at, qMin(piece, data.size() - at));
        QCOMPARE(hasher.result(), QCryptographicHash::hash(data, QCryptographicHash::Md5));
    }
};

CORE_TEST_CLASS(TestReaders)
#include "tst_readers.moc"

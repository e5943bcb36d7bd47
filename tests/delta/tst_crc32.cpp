#include "TestFiles.h"
#include "TestRegistry.h"

#include "delta/Crc32.h"

#include <QtTest>
#include <zlib.h>

// The folded checksum must equal zlib's on every length and alignment: the tail shorter than a block,
// the single blocks after the last group of four, a start inside a vector, and a sum carried on.
class TestCrc32 : public QObject
{
    Q_OBJECT
private slots:
    void matchesZlib_data()
    {
        QTest::addColumn<int>("offset");
        QTest::addColumn<int>("length");
        QTest::addColumn<quint32>("carried");
        for (int length :
            { 0, 1, 15, 16, 63, 64, 65, 79, 80, 127, 128, 129, 191, 255, 256, 4096 + 48, 1 << 20 }) {
            for (int offset : { 0, 3 }) {
                QTest::addRow("%d bytes at %d", length, offset) << offset << length << 0u;
                QTest::addRow("%d bytes at %d, carried on", length, offset)
                    << offset << length << 0x9e3779b9u;
            }
        }
    }
    void matchesZlib()
    {
        QFETCH(int, offset);
        QFETCH(int, length);
        QFETCH(quint32, carried);
        const QByteArray bytes = TestFiles::patternBytes(offset + length, quint32(length + 1));
        const auto* data = reinterpret_cast<const unsigned char*>(bytes.constData()) + offset;
        QCOMPARE(
            Delta::Crc32(carried, data, std::size_t(length)), quint32(crc32(carried, data, uInt(length))));
    }
};

CORE_TEST_CLASS(TestCrc32)
#include "tst_crc32.moc"

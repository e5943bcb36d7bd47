#include "files/Md5Hasher.h"

#include "files/FileBlockReader.h"

#include <QtEndian>

#include <cstring>

namespace {

inline quint32 rotateLeft(quint32 x, int bits)
{
    return (x << bits) | (x >> (32 - bits));
}

// The four round functions, each written so that the sum of word and constant, which does not
// depend on the previous step, is formed while the previous step finishes.
inline void stepF(quint32& a, quint32 b, quint32 c, quint32 d, quint32 word, int bits)
{
    a += word + (d ^ (b & (c ^ d)));
    a = rotateLeft(a, bits) + b;
}

// (b & d) | (c & ~d) has no bit in both halves, so it is their sum; ~d & c does not wait on b.
inline void stepG(quint32& a, quint32 b, quint32 c, quint32 d, quint32 word, int bits)
{
    a += word + (~d & c);
    a += d & b;
    a = rotateLeft(a, bits) + b;
}

inline void stepH(quint32& a, quint32 b, quint32 c, quint32 d, quint32 word, int bits)
{
    a += word + (b ^ c ^ d);
    a = rotateLeft(a, bits) + b;
}

inline void stepI(quint32& a, quint32 b, quint32 c, quint32 d, quint32 word, int bits)
{
    a += word + (c ^ (b | ~d));
    a = rotateLeft(a, bits) + b;
}

} // namespace

void Md5Hasher::process(quint32 state[4], const uchar* blocks, qint64 count)
{
    quint32 a0 = state[0], b0 = state[1], c0 = state[2], d0 = state[3];
    for (; count > 0; --count, blocks += 64) {
        quint32 m[16];
        for (int i = 0; i < 16; ++i)
            m[i] = qFromLittleEndian<quint32>(blocks + 4 * i);
        quint32 a = a0, b = b0, c = c0, d = d0;

        stepF(a, b, c, d, m[0] + 0xd76aa478u, 7);
        stepF(d, a, b, c, m[1] + 0xe8c7b756u, 12);
        stepF(c, d, a, b, m[2] + 0x242070dbu, 17);
        stepF(b, c, d, a, m[3] + 0xc1bdceeeu, 22);
        stepF(a, b, c, d, m[4] + 0xf57c0fafu, 7);
        stepF(d, a, b, c, m[5] + 0x4787c62au, 12);
        stepF(c, d, a, b, m[6] + 0xa8304613u, 17);
        stepF(b, c, d, a, m[7] + 0xfd469501u, 22);
        stepF(a, b, c, d, m[8] + 0x698098d8u, 7);
        stepF(d, a, b, c, m[9] + 0x8b44f7afu, 12);
        stepF(c, d, a, b, m[10] + 0xffff5bb1u, 17);
        stepF(b, c, d, a, m[11] + 0x895cd7beu, 22);
        stepF(a, b, c, d, m[12] + 0x6b901122u, 7);
        stepF(d, a, b, c, m[13] + 0xfd987193u, 12);
        stepF(c, d, a, b, m[14] + 0xa679438eu, 17);
        stepF(b, c, d, a, m[15] + 0x49b40821u, 22);

        stepG(a, b, c, d, m[1] + 0xf61e2562u, 5);
        stepG(d, a, b, c, m[6] + 0xc040b340u, 9);
        stepG(c, d, a, b, m[11] + 0x265e5a51u, 14);
        stepG(b, c, d, a, m[0] + 0xe9b6c7aau, 20);
        stepG(a, b, c, d, m[5] + 0xd62f105du, 5);
        stepG(d, a, b, c, m[10] + 0x02441453u, 9);
        stepG(c, d, a, b, m[15] + 0xd8a1e681u, 14);
        stepG(b, c, d, a, m[4] + 0xe7d3fbc8u, 20);
        stepG(a, b, c, d, m[9] + 0x21e1cde6u, 5);
        stepG(d, a, b, c, m[14] + 0xc33707d6u, 9);
        stepG(c, d, a, b, m[3] + 0xf4d50d87u, 14);
        stepG(b, c, d, a, m[8] + 0x455a14edu, 20);
        stepG(a, b, c, d, m[13] + 0xa9e3e905u, 5);
        stepG(d, a, b, c, m[2] + 0xfcefa3f8u, 9);
        stepG(c, d, a, b, m[7] + 0x676f02d9u, 14);
        stepG(b, c, d, a, m[12] + 0x8d2a4c8au, 20);

        stepH(a, b, c, d, m[5] + 0xfffa3942u, 4);
        stepH(d, a, b, c, m[8] + 0x8771f681u, 11);
        stepH(c, d, a, b, m[11] + 0x6d9d6122u, 16);
        stepH(b, c, d, a, m[14] + 0xfde5380cu, 23);
        stepH(a, b, c, d, m[1] + 0xa4beea44u, 4);
        stepH(d, a, b, c, m[4] + 0x4bdecfa9u, 11);
        stepH(c, d, a, b, m[7] + 0xf6bb4b60u, 16);
        stepH(b, c, d, a, m[10] + 0xbebfbc70u, 23);
        stepH(a, b, c, d, m[13] + 0x289b7ec6u, 4);
        stepH(d, a, b, c, m[0] + 0xeaa127fau, 11);
        stepH(c, d, a, b, m[3] + 0xd4ef3085u, 16);
        stepH(b, c, d, a, m[6] + 0x04881d05u, 23);
        stepH(a, b, c, d, m[9] + 0xd9d4d039u, 4);
        stepH(d, a, b, c, m[12] + 0xe6db99e5u, 11);
        stepH(c, d, a, b, m[15] + 0x1fa27cf8u, 16);
        stepH(b, c, d, a, m[2] + 0xc4ac5665u, 23);

        stepI(a, b, c, d, m[0] + 0xf4292244u, 6);
        stepI(d, a, b, c, m[7] + 0x432aff97u, 10);
        stepI(c, d, a, b, m[14] + 0xab9423a7u, 15);
        stepI(b, c, d, a, m[5] + 0xfc93a039u, 21);
        stepI(a, b, c, d, m[12] + 0x655b59c3u, 6);
        stepI(d, a, b, c, m[3] + 0x8f0ccc92u, 10);
        stepI(c, d, a, b, m[10] + 0xffeff47du, 15);
        stepI(b, c, d, a, m[1] + 0x85845dd1u, 21);
        stepI(a, b, c, d, m[8] + 0x6fa87e4fu, 6);
        stepI(d, a, b, c, m[15] + 0xfe2ce6e0u, 10);
        stepI(c, d, a, b, m[6] + 0xa3014314u, 15);
        stepI(b, c, d, a, m[13] + 0x4e0811a1u, 21);
        stepI(a, b, c, d, m[4] + 0xf7537e82u, 6);
        stepI(d, a, b, c, m[11] + 0xbd3af235u, 10);
        stepI(c, d, a, b, m[2] + 0x2ad7d2bbu, 15);
        stepI(b, c, d, a, m[9] + 0xeb86d391u, 21);

        a0 += a;
        b0 += b;
        c0 += c;
        d0 += d;
    }
    state[0] = a0;
    state[1] = b0;
    state[2] = c0;
    state[3] = d0;
}

void Md5Hasher::addData(const char* data, qint64 size)
{
    if (size <= 0)
        return;
    auto bytes = reinterpret_cast<const uchar*>(data);
    m_total += quint64(size);
    if (m_pendingSize > 0) {
        const int fill = int(qMin<qint64>(64 - m_pendingSize, size));
        std::memcpy(m_pending + m_pendingSize, bytes, size_t(fill));
        m_pendingSize += fill;
        bytes += fill;
        size -= fill;
        if (m_pendingSize < 64)
            return;
        process(m_state, m_pending, 1);
        m_pendingSize = 0;
    }
    process(m_state, bytes, size / 64);
    m_pendingSize = int(size % 64);
    std::memcpy(m_pending, bytes + (size - m_pendingSize), size_t(m_pendingSize));
}

QByteArray Md5Hasher::result() const
{
    // The end mark, zeros up to 8 bytes short of a block's end, and the length in bits.
    uchar tail[128] = {};
    std::memcpy(tail, m_pending, size_t(m_pendingSize));
    tail[m_pendingSize] = 0x80;
    const int tailSize = m_pendingSize < 56 ? 64 : 128;
    qToLittleEndian<quint64>(m_total * 8, tail + tailSize - 8);
    quint32 state[4] = { m_state[0], m_state[1], m_state[2], m_state[3] };
    process(state, tail, tailSize / 64);
    QByteArray digest(16, Qt::Uninitialized);
    for (int i = 0; i < 4; ++i)
        qToLittleEndian<quint32>(state[i], digest.data() + 4 * i);
    return digest;
}

QString Md5Hasher::hexDigestOfFile(const QString& path, QByteArray& buffer, const std::atomic<bool>* stop)
{
    Md5Hasher hash;
    const FileBlockReader::Result read = FileBlockReader::Read(path, buffer, FileBlockReader::kOpenSize, stop,
        [&hash](const char* data, qint64 size) { hash.addData(data, size); });
    if (read.end == FileBlockReader::End::Unreadable)
        return QString();
    return QString::fromLatin1(hash.result().toHex());
}

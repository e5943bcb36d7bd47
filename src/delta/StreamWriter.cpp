#include "StreamWriter.h"

namespace Delta {

namespace {
constexpr std::size_t kBufferSize = 256 * 1024;
}

StreamWriter::StreamWriter(Codec codec)
{
    m_info.codec = codec;
}

StreamWriter::~StreamWriter()
{
    discard();
}

Result StreamWriter::open(const std::string& path)
{
    m_path = path;
    m_buffer.resize(kBufferSize);
    if (m_info.codec == Codec::Deflate) {
        if (deflateInit(&m_zip, Z_BEST_COMPRESSION) != Z_OK)
            return Result::Failure(Status::OutOfMemory, "cannot start the stream compressor");
        m_zipOpen = true;
    }
    return m_file.open(path, ByteFile::Mode::Write);
}

Result StreamWriter::write(const void* data, std::size_t n)
{
    m_info.unpackedSize += n;
    if (m_info.codec == Codec::Stored) {
        m_info.storedSize += n;
        return m_file.write(data, n);
    }
    m_zip.next_in = static_cast<Bytef*>(const_cast<void*>(data));
    m_zip.avail_in = uInt(n);
    return deflateSome(Z_NO_FLUSH);
}

Result StreamWriter::deflateSome(int flush)
{
    for (;;) {
        m_zip.next_out = m_buffer.data();
        m_zip.avail_out = uInt(m_buffer.size());
        const int code = deflate(&m_zip, flush);
        if (code == Z_STREAM_ERROR)
            return Result::Failure(Status::WriteFailed, "the stream compressor failed");
        const std::size_t produced = m_buffer.size() - m_zip.avail_out;
        m_info.storedSize += produced;
        if (produced > 0) {
            const Result written = m_file.write(m_buffer.data(), produced);
            if (!written.ok())
                return written;
        }
        if (flush == Z_FINISH ? code == Z_STREAM_END : (m_zip.avail_in == 0 && m_zip.avail_out != 0))
            return {};
    }
}

Result StreamWriter::finish()
{
    if (m_zipOpen) {
        const Result flushed = deflateSome(Z_FINISH);
        deflateEnd(&m_zip);
        m_zipOpen = false;
        if (!flushed.ok())
            return flushed;
    }
    // A scratch file, read back at once: flushed, not forced to the disk.
    const Result flushed = m_file.flush();
    m_file.close();
    return flushed;
}

void StreamWriter::discard()
{
    if (m_zipOpen)
        deflateEnd(&m_zip);
    m_zipOpen = false;
    m_file.close();
    if (!m_path.empty())
        Files::Remove(m_path);
    m_path.clear();
}

} // namespace Delta

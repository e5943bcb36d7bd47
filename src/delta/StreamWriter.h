#pragma once

#include "ByteFile.h"
#include "DiffFormat.h"

#include <vector>
#include <zlib.h>

namespace Delta {

// One stream of a diff as the encoder makes it: written to a file of its own beside the diff, coded
// as it goes, and copied into the diff once all three are complete.
class StreamWriter
{
public:
    explicit StreamWriter(Codec codec);
    ~StreamWriter();
    StreamWriter(const StreamWriter&) = delete;
    StreamWriter& operator=(const StreamWriter&) = delete;

    Result open(const std::string& path);
    Result write(const void* data, std::size_t n);
    Result finish();
    // Removes the file; the destructor does it too.
    void discard();

    const StreamInfo& info() const { return m_info; }
    const std::string& path() const { return m_path; }

private:
    Result deflateSome(int flush);

    StreamInfo m_info;
    std::string m_path;
    ByteFile m_file;
    z_stream m_zip {};
    bool m_zipOpen = false;
    std::vector<unsigned char> m_buffer;
};

} // namespace Delta

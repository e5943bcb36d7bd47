#pragma once

#include "PieceSink.h"
#include "StreamWriter.h"

#include <cstdint>
#include <vector>

namespace Delta {

// Where the matcher puts what it found: records of the control stream, the differences of each copy
// coded by runs, and the extra bytes. Writes its three streams beside the diff and puts them together
// behind the header at the end.
class DiffSink : public PieceSink
{
public:
    DiffSink(const std::string& diffPath, Codec codec);

    Result open();

    Result add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
        std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength) override;

    // Writes the diff file: the header with the old and new file's figures, then the streams.
    Result finish(std::uint64_t oldSize, std::uint32_t oldCrc, std::uint64_t newSize, std::uint32_t newCrc);

private:
    Result flushRecord();
    Result putDifferences(const unsigned char* oldCopy, const unsigned char* newCopy, std::uint64_t n);
    Result putZeros(std::uint64_t n);
    Result putLiteral(unsigned char oldByte, unsigned char newByte);
    Result emitRun();
    Result putVarint(int stream, std::uint64_t value);
    Result assemble(DiffHeader& header);

    std::string m_diffPath;
    StreamWriter m_streams[StreamCount];

    // The record being built: a later piece that needs no seek joins it while it has no extra bytes.
    struct Record
    {
        std::int64_t seek = 0;
        std::uint64_t copy = 0;
        std::uint64_t extra = 0;
    };
    Record m_record;
    bool m_hasRecord = false;
    std::uint64_t m_oldPosition = 0; // where the decoder's old position stands after m_record

    // Run coding of the differences: zeros before the literals, the literals, zeros after them not yet
    // known to end the run.
    std::uint64_t m_leadingZeros = 0;
    std::vector<unsigned char> m_literals;
    std::uint64_t m_trailingZeros = 0;
    unsigned m_carry = 0; // out of the last literal, into the next byte of the run
};

} // namespace Delta

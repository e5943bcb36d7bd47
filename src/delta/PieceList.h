#pragma once

#include "PieceSink.h"

#include <vector>

namespace Delta {

// Pieces kept in memory, for a later part of the new file described while an earlier one still is:
// they are handed on in their order once the earlier part is done.
class PieceList : public PieceSink
{
public:
    Result add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
        std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength) override;

    Result handTo(PieceSink& sink) const;

private:
    struct Piece
    {
        std::uint64_t oldStart;
        const unsigned char* oldCopy;
        const unsigned char* newCopy;
        std::uint64_t copy;
        const unsigned char* extra;
        std::uint64_t extraLength;
    };
    std::vector<Piece> m_pieces;
};

} // namespace Delta

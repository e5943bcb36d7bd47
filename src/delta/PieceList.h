#pragma once

#include "PieceSink.h"

#include <vector>

namespace Delta {

// Pieces kept in memory, for a later part of the new file described while an earlier one still is:
// they are handed on in their order once the earlier part is done. Only the numbers are kept; the
// bytes they point to are found again in the two buffers the part was described from.
class PieceList : public PieceSink
{
public:
    // old holds the old bytes from oldBase on; newBytes the part's new bytes.
    PieceList(const unsigned char* old, std::uint64_t oldBase, const unsigned char* newBytes);

    // Memory a held piece takes.
    static constexpr std::uint64_t kPieceBytes = 24;

    Result add(std::uint64_t oldStart, const unsigned char* oldCopy, const unsigned char* newCopy,
        std::uint64_t copy, const unsigned char* extra, std::uint64_t extraLength) override;

    Result handTo(PieceSink& sink) const;

private:
    struct Piece
    {
        std::uint64_t oldStart;
        std::uint64_t copy;
        std::uint64_t extraLength;
    };
    static_assert(sizeof(Piece) == kPieceBytes, "the memory estimate counts held pieces at this size");

    const unsigned char* m_old;
    std::uint64_t m_oldBase;
    const unsigned char* m_new;
    std::vector<Piece> m_pieces;
};

} // namespace Delta

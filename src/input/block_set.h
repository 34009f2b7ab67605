// The block numbers received for one frame: an ordered set that never allocates.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

class CBlockSet {
public:
    // True when the block was not in the set before.
    bool insert(std::uint16_t block) {
        if (count(block) != 0) return false;
        const std::size_t word = block / 64;
        m_Words[word] |= std::uint64_t{1} << (block % 64);
        m_nUsedWords = std::max(m_nUsedWords, word + 1);
        ++m_nSize;
        return true;
    }
    void clear();

    std::size_t count(std::uint16_t block) const { return (m_Words[block / 64] >> (block % 64)) & 1; }
    std::size_t size() const { return m_nSize; }

    // The first number missing from the run 1, 2, 3, ...; 65536 when none is.
    unsigned int FirstMissing() const;

private:
    static constexpr std::size_t Words = 65536 / 64;

    std::uint64_t m_Words[Words] = {};
    std::size_t m_nUsedWords = 0;  // all words from here on are 0
    std::size_t m_nSize = 0;
};

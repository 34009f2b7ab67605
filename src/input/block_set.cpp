#include "input/block_set.h"

#include <algorithm>

void CBlockSet::clear() {
    std::fill_n(m_Words, m_nUsedWords, 0);
    m_nUsedWords = 0;
    m_nSize = 0;
}

unsigned int CBlockSet::FirstMissing() const {
    for (std::size_t word = 0; word < Words; ++word) {
        const std::uint64_t present = m_Words[word] | (word == 0 ? 1 : 0);  // block 0 is not part of the run
        if (~present != 0)
            return static_cast<unsigned int>(word * 64) +
                   static_cast<unsigned int>(__builtin_ctzll(~present));
    }
    return 65536;
}

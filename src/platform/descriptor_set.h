// The sets that select is given, by descriptor.
#pragma once

#include <sys/select.h>

// What FD_SET and FD_ISSET do, without the fortified C library's call for each: every waiting camera takes
// both in every pass. A descriptor is at least 0 and below FD_SETSIZE.
constexpr unsigned DescriptorsPerWord = NFDBITS;

inline fd_mask DescriptorBit(int descriptor) {
    return static_cast<fd_mask>(1UL << static_cast<unsigned>(descriptor) % DescriptorsPerWord);
}

inline void AddDescriptor(int descriptor, fd_set& set) {
    set.fds_bits[static_cast<unsigned>(descriptor) / DescriptorsPerWord] |= DescriptorBit(descriptor);
}

inline bool HasDescriptor(int descriptor, const fd_set& set) {
    return (set.fds_bits[static_cast<unsigned>(descriptor) / DescriptorsPerWord] &
            DescriptorBit(descriptor)) != 0;
}

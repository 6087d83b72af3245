#pragma once

// Layout of a stream file: magic, 32-bit little-endian header length, JSON
// header text, then the payload bytes exactly as the instrument sent them.

#include <cstddef>
#include <string_view>

namespace zolt::timing {

inline constexpr std::string_view kStreamFileMagic{"ZOTIME1\n", 8};
// Files from before the rename carry this magic and read the same way.
inline constexpr std::string_view kStreamFileOldMagic{"TTSTRM1\n", 8};
inline constexpr std::size_t kStreamFileLengthBytes = 4;
inline constexpr std::size_t kStreamFilePrefixBytes = 8 + kStreamFileLengthBytes;

}  // namespace zolt::timing

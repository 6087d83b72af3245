#pragma once

#include <cstdint>
#include <string>

namespace zolt::timing::detail {

// Path of part `index` of a split tag file: part 0 is the base path itself;
// part n inserts "_" and n (at least four digits) before the extension, e.g.
// run.tags, run_0001.tags, ... The extension starts at the last "." that no
// "/" or "\" follows.
std::string tag_file_part_path(const std::string& base, std::uint64_t index);

}  // namespace zolt::timing::detail

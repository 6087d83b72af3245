#pragma once

// File-name pattern matching and symbolic-link resolution (glob, realpath).

#include <optional>
#include <string>
#include <vector>

namespace zolt::timing::detail {

// Paths matching the shell pattern, in glob's order; empty when nothing
// matches or the pattern cannot be searched.
std::vector<std::string> glob_paths(const std::string& pattern);

// The canonical path with every link resolved; nothing when it does not
// resolve (dangling link, no permission).
std::optional<std::string> real_path(const std::string& path);

}  // namespace zolt::timing::detail

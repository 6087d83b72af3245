#include "files/tag_file_part_path.hpp"

#include <cstdio>

namespace zolt::timing::detail {

std::string tag_file_part_path(const std::string& base, std::uint64_t index) {
  if (index == 0) return base;
  const std::size_t dot = base.rfind('.');
  const std::size_t separator = base.find_last_of("/\\");
  const bool has_extension = dot != std::string::npos && (separator == std::string::npos || separator < dot);
  const std::size_t split = has_extension ? dot : base.size();
  char number[32];
  std::snprintf(number, sizeof number, "_%04llu", static_cast<unsigned long long>(index));
  return base.substr(0, split) + number + base.substr(split);
}

}  // namespace zolt::timing::detail

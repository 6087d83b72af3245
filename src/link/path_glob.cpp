#include "link/path_glob.hpp"

#include <glob.h>
#include <stdlib.h>

#include <memory>

namespace zolt::timing::detail {

std::vector<std::string> glob_paths(const std::string& pattern) {
  glob_t matches{};
  std::vector<std::string> paths;
  if (::glob(pattern.c_str(), 0, nullptr, &matches) == 0) {
    // globfree must run even if copying the names runs out of memory.
    const std::unique_ptr<glob_t, void (*)(glob_t*)> guard(&matches, ::globfree);
    paths.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
  } else {
    ::globfree(&matches);
  }
  return paths;
}

std::optional<std::string> real_path(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), ::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

}  // namespace zolt::timing::detail

#include "usb/dynamic_library.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <array>

namespace zolt::timing::detail {

std::string directory_part(const std::string& path) {
  const auto separator = path.find_last_of("/\\");
  if (separator == std::string::npos) return {};
  return path.substr(0, separator);
}

std::string module_directory() {
  Dl_info info{};
  // Any function of ours will do; its address lies in our own file.
  if (dladdr(reinterpret_cast<void*>(&module_directory), &info) == 0 || !info.dli_fname) return {};
  return directory_part(info.dli_fname);
}

std::string process_directory() {
  std::array<char, 4096> buffer{};
  const ssize_t length = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  // A full-length read may be a truncated path: treat it as unknown.
  if (length <= 0 || static_cast<std::size_t>(length) >= buffer.size() - 1) return {};
  return directory_part(std::string(buffer.data(), static_cast<std::size_t>(length)));
}

void* open_library(const std::string& path, std::string& error) {
  dlerror();
  void* library = dlopen(path.c_str(), RTLD_NOW);
  if (!library) {
    const char* message = dlerror();
    error = message ? message : "unknown dlopen error";
  }
  return library;
}

void* find_symbol(void* library, const char* name) {
  dlerror();
  return dlsym(library, name);
}

}  // namespace zolt::timing::detail

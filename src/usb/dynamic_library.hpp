#pragma once

// Thin wrappers over the dynamic loader and /proc, used to find and bind the
// FTDI runtime.

#include <string>

namespace zolt::timing::detail {

// Directory of the file that holds this library's code (the shared library,
// or the program when linked statically); empty when unknown.
std::string module_directory();
// Directory of the running program, from /proc/self/exe; empty when unknown.
std::string process_directory();
// `path` up to, not including, its last '/' or '\'; empty without separator.
std::string directory_part(const std::string& path);

// dlopen(path, RTLD_NOW). On failure returns null and sets `error` to the
// loader's message ("unknown dlopen error" when it gives none).
void* open_library(const std::string& path, std::string& error);
// dlsym; null when the library does not define the symbol.
void* find_symbol(void* library, const char* name);

}  // namespace zolt::timing::detail

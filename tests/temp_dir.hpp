#pragma once

// A scratch directory for file tests, removed with everything in it.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace zolt::timing::testing {

class TempDir {
 public:
  TempDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/zolt_files_XXXXXX";
    if (!::mkdtemp(pattern.data())) std::abort();
    path_ = pattern;
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline std::string read_bytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void write_bytes(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// Magic, little-endian length and header text: a stream file built by hand.
inline std::string stream_file_bytes(const std::string& json, const std::string& payload = {},
                                     const std::string& magic = "ZOTIME1\n") {
  const auto length = static_cast<std::uint32_t>(json.size());
  std::string bytes = magic;
  for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((length >> shift) & 0xFF);
  return bytes + json + payload;
}

}  // namespace zolt::timing::testing

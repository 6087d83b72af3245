// Feeds arbitrary bytes to the stream file and tag file readers as a file:
// header, payload, tag decoding (tag words and the stream formats), seeks
// and ranges must fail cleanly, never crash, hang or read out of bounds.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "zolt_timing.h"

namespace {

// An in-memory file reachable by path, so the readers open it as usual.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t* data, std::size_t size) : fd_(::memfd_create("stream_file_fuzz", 0)) {
    if (fd_ < 0) return;
    std::size_t done = 0;
    while (done < size) {
      const ssize_t wrote = ::write(fd_, data + done, size - done);
      if (wrote <= 0) break;
      done += static_cast<std::size_t>(wrote);
    }
    path_ = "/proc/self/fd/" + std::to_string(fd_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() {
    if (fd_ >= 0) ::close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  const char* path() const { return path_.c_str(); }

 private:
  int fd_;
  std::string path_;
};

void exercise_stream_reader(const char* path) {
  tt_stream_file_reader* reader = nullptr;
  if (tt_stream_file_reader_open(&reader, path) != TT_OK) return;
  tt_stream_file_info info;
  tt_stream_file_reader_info(reader, &info);
  (void)tt_stream_file_reader_header_json(reader);
  std::vector<char> buffer(4096);
  size_t count = 0;
  for (int reads = 0; reads < 64; ++reads) {
    if (tt_stream_file_reader_read_payload(reader, buffer.data(), buffer.size(), &count) != TT_OK || count == 0) break;
  }
  tt_stream_file_reader_rewind(reader);
  tt_stream_file_reader_read_payload(reader, buffer.data(), 7, &count);
  std::vector<tt_tag> tags(333);
  for (int reads = 0; reads < 64; ++reads) {
    if (tt_stream_file_reader_read_tags(reader, tags.data(), tags.size(), &count) != TT_OK || count == 0) break;
  }
  tt_stream_tag_summary summary;
  tt_stream_file_reader_summarize_tags(reader, &summary);
  tt_stream_file_reader_read_tags(reader, tags.data(), 1, &count);
  tt_stream_file_reader_free(reader);
}

void exercise_tag_reader(const char* path, const std::uint8_t* data, std::size_t size) {
  tt_tag_file_reader* reader = nullptr;
  if (tt_tag_file_reader_open(&reader, path) != TT_OK) return;
  tt_tag_file_info info;
  tt_tag_file_reader_info(reader, &info);
  std::vector<tt_tag> tags(512);
  size_t count = 0;
  for (int reads = 0; reads < 64; ++reads) {
    if (tt_tag_file_reader_read(reader, tags.data(), tags.size(), &count) != TT_OK || count == 0) break;
  }
  // Positions taken from the input's first bytes, so the fuzzer steers them.
  const std::int64_t time = size >= 2 ? static_cast<std::int64_t>(data[0]) << (data[1] % 48) : 0;
  tt_tag_file_reader_seek_tag(reader, size ? data[size - 1] : 0);
  tt_tag_file_reader_read(reader, tags.data(), 3, &count);
  tt_tag_file_reader_seek_time(reader, time);
  tt_tag_file_reader_read(reader, tags.data(), 5, &count);
  tt_tag_file_reader_read_time_range(reader, time, time + 100'000'000, tags.data(), tags.size(), &count);
  tt_tag_file_reader_read_tag_range(reader, 1, 40, tags.data(), 16, &count);
  tt_tag_file_reader_read(reader, tags.data(), tags.size(), &count);
  tt_tag_file_reader_free(reader);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MemoryFile file(data, size);
  if (!file.ok()) return 0;
  exercise_stream_reader(file.path());
  exercise_tag_reader(file.path(), data, size);
  return 0;
}

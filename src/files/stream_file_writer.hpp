#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>

#include "files/stream_file_header.hpp"

namespace zolt::timing {

// Writes a stream file: the header when opened, then payload bytes as they
// come. Payload blocks arrive in the size of one USB read during a capture;
// the 1 MiB stream buffer keeps them from reaching the file system one by one.
class StreamFileWriter {
 public:
  static constexpr std::size_t kBufferBytes = 1 << 20;

  StreamFileWriter();
  StreamFileWriter(const StreamFileWriter&) = delete;
  StreamFileWriter& operator=(const StreamFileWriter&) = delete;
  ~StreamFileWriter();

  // Truncates or creates path and writes magic, length and JSON header.
  // Throws Error on failure; a file already open is closed first.
  void open(const std::string& path, const StreamFileHeader& header);

  // Appends payload bytes; the counters advance only when all of them went out.
  void write(const void* data, std::size_t size);

  // Flushes and closes; failures to flush are not reported. Idempotent.
  void close() noexcept;

  bool is_open() const { return out_.is_open(); }
  const StreamFileHeader& header() const { return header_; }
  std::uint64_t payload_bytes() const { return payload_bytes_; }
  // Bytes in the file: magic, length field, header text and payload.
  std::uint64_t file_bytes() const { return file_bytes_; }

 private:
  struct FreeBuffer {
    void operator()(char* buffer) const noexcept { std::free(buffer); }
  };
  // Zero-filled by calloc, which leaves fresh pages untouched until the
  // stream writes them: a writer of a few bytes does not fault in 1 MiB.
  std::unique_ptr<char, FreeBuffer> buffer_;
  std::ofstream out_;
  StreamFileHeader header_;
  std::uint64_t payload_bytes_ = 0;
  std::uint64_t file_bytes_ = 0;
};

}  // namespace zolt::timing

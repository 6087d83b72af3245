#include "files/stream_file_writer.hpp"

#include <limits>
#include <new>

#include "api/error.hpp"
#include "files/json_header_codec.hpp"
#include "files/stream_file_format.hpp"

namespace zolt::timing {

StreamFileWriter::StreamFileWriter() : buffer_(static_cast<char*>(std::calloc(kBufferBytes, 1))) {
  if (!buffer_) throw std::bad_alloc();
}

StreamFileWriter::~StreamFileWriter() { close(); }

void StreamFileWriter::open(const std::string& path, const StreamFileHeader& header) {
  close();
  header_ = header;
  out_.clear();
  // The buffer must be installed before the file is opened to take effect.
  out_.rdbuf()->pubsetbuf(buffer_.get(), kBufferBytes);
  out_.open(path, std::ios::binary | std::ios::out | std::ios::trunc);

  const std::string json = detail::stream_header_to_json(header_);
  if (json.size() > std::numeric_limits<std::uint32_t>::max()) {
    throw Error(TT_ERR_INVALID_ARGUMENT, "StreamFileWriter: header is too large");
  }
  const auto length = static_cast<std::uint32_t>(json.size());
  const char length_le[kStreamFileLengthBytes] = {
      static_cast<char>(length & 0xFF), static_cast<char>((length >> 8) & 0xFF),
      static_cast<char>((length >> 16) & 0xFF), static_cast<char>((length >> 24) & 0xFF)};
  out_.write(kStreamFileMagic.data(), static_cast<std::streamsize>(kStreamFileMagic.size()));
  out_.write(length_le, sizeof length_le);
  out_.write(json.data(), static_cast<std::streamsize>(json.size()));
  if (out_.fail()) throw Error(TT_ERR_IO, "StreamFileWriter: failed to write header");
  payload_bytes_ = 0;
  file_bytes_ = kStreamFilePrefixBytes + json.size();
}

void StreamFileWriter::write(const void* data, std::size_t size) {
  if (!out_.is_open() || out_.fail()) throw Error(TT_ERR_INVALID_STATE, "StreamFileWriter: not open");
  if (!data && size != 0) throw Error(TT_ERR_INVALID_ARGUMENT, "StreamFileWriter: null data");
  if (size == 0) return;
  out_.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  if (out_.fail()) throw Error(TT_ERR_IO, "StreamFileWriter: payload write failed");
  payload_bytes_ += size;
  file_bytes_ += size;
}

void StreamFileWriter::close() noexcept {
  if (!out_.is_open()) return;
  // std::ofstream reports through its state, not by throwing (no exception
  // mask is set), so this cannot throw.
  out_.close();
  out_.clear();
}

}  // namespace zolt::timing

#pragma once

// What the opaque file handles of the public interface hold: one file object
// each and the handle's own last-error text.

#include <string>

#include "files/stream_file_reader.hpp"
#include "files/stream_file_writer.hpp"
#include "files/tag_file_reader.hpp"
#include "files/tag_file_writer.hpp"
#include "zolt_timing.h"

struct tt_stream_file_writer {
  zolt::timing::StreamFileWriter writer;
  std::string last_error;
};

struct tt_stream_file_reader {
  zolt::timing::StreamFileReader reader;
  std::string last_error;
};

struct tt_tag_file_writer {
  zolt::timing::TagFileWriter writer;
  std::string last_error;
};

struct tt_tag_file_reader {
  zolt::timing::TagFileReader reader;
  std::string last_error;
};

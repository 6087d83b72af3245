#pragma once

#include "files/stream_file_reader.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// Decodes the reader's whole payload from the start and counts its tags per
// input, with the first and last time; the reader is left rewound.
tt_stream_tag_summary summarize_stream_tags(StreamFileReader& reader);

}  // namespace zolt::timing

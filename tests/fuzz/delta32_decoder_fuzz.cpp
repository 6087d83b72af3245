#include "decoder_fuzz_input.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  zolt::timing::fuzz::decode_in_chunks(zolt::timing::StreamFormat::delta32, data, size);
  return 0;
}

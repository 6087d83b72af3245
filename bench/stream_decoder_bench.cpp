// Decoder throughput per wire format on a realistic four-input stream, next
// to a plain memcpy of the same bytes. The link delivers at most ~53 MB/s;
// the decoder should leave a core mostly idle at that rate.

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <vector>

#include "stream/stream_decoder.hpp"
#include "zolt_sim/encoders.hpp"

namespace {

using zolt::timing::StreamDecoder;
using zolt::timing::StreamFileHeader;
using zolt::timing::StreamFormat;
using zolt::timing::TimeTag;
using zolt::timing::TimestampMode;

// Four inputs, Poisson arrivals at 20 M tags/s in all (5 MHz each), with
// the inputs' dead time: what a busy experiment streams.
std::vector<zolt_sim::InputEvent> four_input_events() {
  std::mt19937_64 random(42);
  std::exponential_distribution<double> gap(20e6 / 1e12);
  std::uniform_int_distribution<int> input(0, 3);
  std::vector<zolt_sim::InputEvent> events;
  std::int64_t now = 1'000'000, last[4] = {};
  for (int i = 0; i < 4'000'000; ++i) {
    now += 1 + static_cast<std::int64_t>(gap(random));
    const auto ch = static_cast<std::uint8_t>(input(random));
    if (now - last[ch] < 2000) continue;
    last[ch] = now;
    events.push_back({ch, now});
  }
  return events;
}

struct Stream {
  std::vector<std::uint8_t> bytes;
  std::size_t tags = 0;
};

const Stream& stream_of(StreamFormat format) {
  static const std::vector<zolt_sim::InputEvent> events = four_input_events();
  static Stream streams[3];
  Stream& s = streams[static_cast<int>(format)];
  if (s.bytes.empty()) {
    if (format == StreamFormat::raw64) {
      zolt_sim::Raw64TagEncoder encoder;
      for (const auto& e : events) encoder.encode(e, s.bytes);
    } else if (format == StreamFormat::delta32) {
      zolt_sim::Delta32Encoder encoder;
      for (const auto& e : events) encoder.encode(e, s.bytes);
    } else {
      zolt_sim::PackedDeltaEncoder encoder;
      for (const auto& e : events) encoder.encode(e, s.bytes);
      encoder.finish(s.bytes);
    }
    s.tags = events.size();
  }
  return s;
}

// Arguments: format, chunk size (8 KiB as the live reader reads, 1 MiB as
// the stream-file reader does) and where the tags go: 0 = all into one
// growing vector (62 MB of output for the whole stream, well beyond the
// caches), 1 = handed on after each chunk, the output vector reused.
void BM_Decode(benchmark::State& state) {
  const auto format = static_cast<StreamFormat>(state.range(0));
  const auto chunk = static_cast<std::size_t>(state.range(1));
  const bool handed_on = state.range(2) != 0;
  const Stream& stream = stream_of(format);
  StreamFileHeader header;
  header.stream_format = format;
  header.mode = TimestampMode::external;
  std::vector<TimeTag> tags;
  tags.reserve(2 * stream.tags + (1U << 21));  // as a long-running reader's buffer: never regrown
  for (auto _ : state) {
    StreamDecoder decoder(header);
    tags.clear();
    std::size_t decoded = 0;
    for (std::size_t at = 0; at < stream.bytes.size(); at += chunk) {
      decoded += decoder.feed(std::span(stream.bytes).subspan(at, std::min(chunk, stream.bytes.size() - at)), tags);
      if (handed_on) {
        benchmark::DoNotOptimize(tags.data());
        tags.clear();
      }
    }
    if (decoded != stream.tags) state.SkipWithError("decoded tag count differs from the encoded one");
    benchmark::DoNotOptimize(tags.data());
  }
  state.counters["tags/s"] = benchmark::Counter(static_cast<double>(stream.tags), benchmark::Counter::kIsIterationInvariantRate);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.bytes.size()));
}

void BM_Memcpy(benchmark::State& state) {
  const auto format = static_cast<StreamFormat>(state.range(0));
  const auto chunk = static_cast<std::size_t>(state.range(1));
  const Stream& stream = stream_of(format);
  std::vector<std::uint8_t> copy(stream.bytes.size());
  for (auto _ : state) {
    for (std::size_t at = 0; at < stream.bytes.size(); at += chunk) {
      std::memcpy(copy.data() + at, stream.bytes.data() + at, std::min(chunk, stream.bytes.size() - at));
    }
    benchmark::ClobberMemory();
  }
  state.counters["tags/s"] = benchmark::Counter(static_cast<double>(stream.tags), benchmark::Counter::kIsIterationInvariantRate);
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * stream.bytes.size()));
}

void decode_cases(benchmark::internal::Benchmark* b) {
  b->ArgNames({"format", "chunk", "handed_on"});
  for (int format : {0, 1, 2}) {
    for (int chunk : {8192, 1 << 20}) {
      for (int handed_on : {0, 1}) b->Args({format, chunk, handed_on});
    }
  }
  b->Unit(benchmark::kMillisecond);
}

void copy_cases(benchmark::internal::Benchmark* b) {
  b->ArgNames({"format", "chunk"});
  for (int format : {0, 1, 2}) {
    for (int chunk : {8192, 1 << 20}) b->Args({format, chunk});
  }
  b->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_Decode)->Apply(decode_cases);
BENCHMARK(BM_Memcpy)->Apply(copy_cases);

}  // namespace

#pragma once

// The instrument's side of the three timestamp wire formats: how the FPGA
// turns events on its inputs into stream bytes. Written from the instrument's
// point of view (a 300 MHz coarse counter that wraps after 2^32 counts,
// deltas taken modulo a power of two, tapped delay lines for the fine part),
// independently of the host's decoder.

#include <array>
#include <cstdint>
#include <vector>

namespace zolt_sim {

inline constexpr std::int64_t kCoarsePeriodPs = 3333;
inline constexpr std::int64_t kCounterWrapPs = 0xD0500000000LL;  // 2^32 coarse counts

// An edge on input 0..3 at time_ps since the instrument's counter started.
struct InputEvent {
  std::uint8_t input = 0;
  std::int64_t time_ps = 0;
};

// raw64 tag words: input in bits 62..61, picoseconds modulo the counter wrap
// in bits 43..0, eight bytes big-endian.
class Raw64TagEncoder {
 public:
  void encode(const InputEvent& event, std::vector<std::uint8_t>& out) const;
};

// One tapped delay line: the edge runs through taps of uneven delay until
// the next coarse clock edge; the fine code is the number of taps passed.
class DelayLine {
 public:
  // Tap delays scatter around mean_tap_ps by up to +-spread (a fraction),
  // with a slow bow along the line, like a real carry chain.
  explicit DelayLine(std::uint32_t seed, double mean_tap_ps = 18.5, double spread = 0.45);

  // Fine code for an edge delay_ps (0 <= delay < one coarse period) before
  // the clock edge; delays past the last tap give the last code.
  std::uint16_t code_for(std::int64_t delay_ps) const;
  // Delay at which each code begins (code c covers [edges[c-1], edges[c])).
  const std::vector<double>& tap_edges() const noexcept { return edges_; }

 private:
  std::vector<double> edges_;
};

// raw64 calibration-format words: marker 0xA5C3 in bits 60..45, coarse count
// of the clock edge after the event in bits 44..13, fine code in 12..0.
class Raw64CalibrationEncoder {
 public:
  struct Reading {
    std::uint32_t coarse;
    std::uint16_t fine;
  };

  explicit Raw64CalibrationEncoder(std::array<DelayLine, 4> lines);

  Reading read(const InputEvent& event) const;
  void encode(const InputEvent& event, std::vector<std::uint8_t>& out) const;

 private:
  std::array<DelayLine, 4> lines_;
};

// delta32: 4-byte words. Each tag carries the picoseconds since the input's
// previous tag (modulo 2^41, low 25 bits; higher bits go ahead in overflow
// words). A block of sync word and 41-bit time base (low 25, high 16 bits)
// starts the stream, introduces each input and repeats every
// sync_every_tags tags; the tag after a block counts from the base.
class Delta32Encoder {
 public:
  struct Options {
    std::uint32_t sync_every_tags = 4096;  // 0: only at the start and for new inputs
  };

  Delta32Encoder() : Delta32Encoder(Options{}) {}
  explicit Delta32Encoder(Options options) : options_(options) {}

  void encode(const InputEvent& event, std::vector<std::uint8_t>& out);

 private:
  Options options_;
  bool started_ = false;
  std::uint64_t now_ = 0;  // counter value (ps, modulo the wrap) at the last tag
  std::uint32_t tags_since_sync_ = 0;
  std::array<bool, 4> known_{};
  std::array<std::uint64_t, 4> last_{};
};

// Packed delta: (d + 3)-bit records, most significant bit first, packed
// across byte boundaries: input (2 bits), overflow flag, d-bit delta in time
// quanta. Deltas are taken modulo 2^41 quanta; larger parts go ahead in
// overflow records. Before an input's first tag, and every sync_every_tags
// tags of that input, a sync marker (overflow flag, delta all ones) and
// (d + 40) / d chunks carry a 41-bit time in quanta, lowest chunk first; the
// tag after it counts from that time.
class PackedDeltaEncoder {
 public:
  struct Options {
    unsigned delta_bits = 16;
    unsigned quantum_ps = 8;  // a power of two
    std::uint32_t sync_every_tags = 1024;
  };

  PackedDeltaEncoder() : PackedDeltaEncoder(Options{}) {}
  explicit PackedDeltaEncoder(Options options);

  // Appends the bytes completed by this event's records.
  void encode(const InputEvent& event, std::vector<std::uint8_t>& out);
  // Completes the last byte with zero bits (fewer than one record).
  void finish(std::vector<std::uint8_t>& out);

 private:
  void put_record(unsigned input, bool overflow, std::uint64_t delta, std::vector<std::uint8_t>& out);
  void put_delta(unsigned input, std::uint64_t quanta, std::vector<std::uint8_t>& out);

  Options options_;
  unsigned shift_;  // log2 of the quantum
  std::uint64_t field_mask_;
  std::uint64_t bits_ = 0;  // not yet complete byte(s), right-aligned
  unsigned bit_count_ = 0;
  std::array<bool, 4> known_{};
  std::array<std::uint64_t, 4> last_{};  // quanta, modulo the wrap
  std::array<std::uint32_t, 4> since_sync_{};
};

}  // namespace zolt_sim

#include "stream/packed_alignment_probe.hpp"

#include <algorithm>
#include <array>
#include <bit>

#include "stream/packed_record.hpp"

namespace zolt::timing {

namespace {

constexpr std::size_t kProbeWindowBytes = 65536;
// How far into the buffer an alignment may start.
constexpr std::size_t kSearchBytesOneInput = 16;
constexpr std::size_t kSearchBytesSeveralInputs = 64;

struct CandidateScore {
  std::uint8_t synced_mask = 0;
  std::array<std::uint64_t, 4> tags{};
};

// Decodes records from `bit` as the decoder would and counts, per input, the
// tags after that input's first complete sync. Decoding stops at a record of
// an inactive input: the decoder would drop its lock there.
CandidateScore score_candidate(const std::uint8_t* data, std::size_t size, std::uint64_t bit,
                               const PackedProbeSettings& settings) {
  const unsigned d = settings.delta_bits;
  const unsigned width = d + 3;
  const std::uint64_t sync_delta = (1ULL << d) - 1;
  const std::size_t first_byte = static_cast<std::size_t>(bit >> 3);
  const std::size_t window = std::min(size - first_byte, kProbeWindowBytes);
  const std::uint64_t start = bit & 7;
  const std::uint64_t records = (8 * static_cast<std::uint64_t>(window) - start) / width;
  const std::uint8_t* bytes = data + first_byte;

  CandidateScore score;
  int sync_channel = -1;
  unsigned chunks_left = 0;
  for (std::uint64_t r = 0; r < records; ++r) {
    const auto f = detail::split_packed_record(detail::packed_record_at(bytes, window, start + r * width, width), d);
    if (!((settings.active_mask >> f.channel) & 1U)) break;
    if (chunks_left > 0) {
      if (static_cast<int>(f.channel) == sync_channel && !f.overflow) {
        if (--chunks_left == 0) score.synced_mask |= static_cast<std::uint8_t>(1U << f.channel);
        continue;
      }
      chunks_left = 0;  // interrupted: this record counts on its own below
    }
    if (f.overflow) {
      if (f.delta == sync_delta) {
        sync_channel = static_cast<int>(f.channel);
        chunks_left = detail::packed_sync_chunks(d);
      }
      continue;
    }
    if ((score.synced_mask >> f.channel) & 1U) ++score.tags[f.channel];
  }
  return score;
}

struct Spread {
  std::uint64_t min = 0, max = 0, total = 0;
};

Spread spread_over(const CandidateScore& score, std::uint8_t active_mask) {
  Spread s;
  bool first = true;
  for (unsigned ch = 0; ch < 4; ++ch) {
    if (!((active_mask >> ch) & 1U)) continue;
    const std::uint64_t n = score.tags[ch];
    s.min = first ? n : std::min(s.min, n);
    s.max = first ? n : std::max(s.max, n);
    s.total += n;
    first = false;
  }
  return s;
}

}  // namespace

// Candidates: every record phase, i.e. bit positions 0..W-1, earliest first;
// a later candidate must be strictly better to win.
PackedAlignment probe_packed_alignment(const std::uint8_t* data, std::size_t size,
                                       const PackedProbeSettings& settings, PackedDebugLog& log) {
  PackedAlignment best;
  if (size == 0) return best;
  const unsigned width = settings.delta_bits + 3;
  const int active = std::popcount(settings.active_mask);
  const int required = active <= 1 ? 1 : (settings.internal_mode ? active : 2);
  const std::size_t search_bytes = std::min(active <= 1 ? kSearchBytesOneInput : kSearchBytesSeveralInputs, size - 1);
  const std::uint64_t last_bit = std::min<std::uint64_t>(width, 8 * search_bytes + 8);

  int best_synced = 0;
  Spread best_spread;
  for (std::uint64_t bit = 0; bit < last_bit; ++bit) {
    const CandidateScore score = score_candidate(data, size, bit, settings);
    const int synced = std::popcount(static_cast<unsigned>(score.synced_mask & settings.active_mask));
    const Spread s = spread_over(score, settings.active_mask);
    if (active >= 2 && settings.internal_mode && (s.min == 0 || 2 * s.min < s.max)) {
      log.line("reject internal alignment drop_bytes=", bit >> 3, " bit_offset=", bit & 7, " synced=", synced, "/",
               active, " min=", s.min, " max=", s.max, " total=", s.total);
      continue;
    }
    if (synced < required || s.total == 0) continue;
    bool better;
    if (!best.found) {
      better = true;
    } else if (active <= 1) {
      better = synced > best_synced || (synced == best_synced && s.total > best_spread.total);
    } else {
      better = synced > best_synced || (synced == best_synced && s.min > best_spread.min) ||
               (synced == best_synced && s.min == best_spread.min && s.total > best_spread.total);
    }
    if (!better) continue;
    best.found = true;
    best.synced_mask = static_cast<std::uint8_t>(score.synced_mask & settings.active_mask);
    best.drop_bytes = static_cast<std::size_t>(bit >> 3);
    best.bit_offset = static_cast<unsigned>(bit & 7);
    best_synced = synced;
    best_spread = s;
  }
  return best;
}

}  // namespace zolt::timing

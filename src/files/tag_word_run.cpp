#include "files/tag_word_run.hpp"

#include <algorithm>
#include <cstddef>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "files/tag_word.hpp"

namespace zolt::timing::detail {

template <class Tag>
TagRunSummary decode_tag_run_portable(const std::uint8_t* data, std::size_t words, Tag* out,
                                      const std::array<std::uint64_t, 4>& offset) noexcept {
  TagRunSummary run;
  for (std::size_t i = 0; i < words; ++i) {
    const std::uint64_t word = load_be64(data + i * kTagWordBytes);
    run.any_bits |= word;
    const std::uint64_t channel = (word >> kTagWordChannelShift) & 3;
    const std::uint64_t time = stored_tag_time(word);
    run.lowest = std::min(run.lowest, time);
    run.highest = std::max(run.highest, time);
    run.inputs_seen |= 1U << channel;
    out[i] = make_tag<Tag>(channel, time + offset[channel]);
  }
  return run;
}

#if defined(__x86_64__)
namespace {

// The vector version writes each tag as two 64-bit lanes: the input (which
// also zeroes the padding after it) and the time.
static_assert(sizeof(TimeTag) == 16 && offsetof(TimeTag, channel) == 0 && offsetof(TimeTag, time) == 8);
static_assert(sizeof(tt_tag) == 16 && offsetof(tt_tag, channel) == 0 && offsetof(tt_tag, time_ps) == 8);

bool processor_has_avx2() noexcept {
  static const bool has = __builtin_cpu_supports("avx2");
  return has;
}

__attribute__((target("avx2"))) std::uint64_t lane_or(__m256i v) noexcept {
  alignas(32) std::uint64_t lane[4];
  _mm256_store_si256(reinterpret_cast<__m256i*>(lane), v);
  return lane[0] | lane[1] | lane[2] | lane[3];
}

// Four words per step. Stored times are below 2^44, so signed 64-bit
// comparisons (all AVX2 has) order them correctly.
__attribute__((target("avx2"))) TagRunSummary decode_quads_avx2(const std::uint8_t* data, std::size_t quads,
                                                                 void* out,
                                                                 const std::array<std::uint64_t, 4>& offset) noexcept {
  const __m256i big_endian = _mm256_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8,  //
                                              7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8);
  const __m256i time_mask = _mm256_set1_epi64x(static_cast<long long>(kTagWordTimeMask));
  const __m256i last_in_period = _mm256_set1_epi64x(static_cast<long long>(kWrapPeriodPs - 1));
  const __m256i period = _mm256_set1_epi64x(static_cast<long long>(kWrapPeriodPs));
  const __m256i three = _mm256_set1_epi64x(3);
  const __m256i one = _mm256_set1_epi64x(1);
  const __m256i offsets = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(offset.data()));
  __m256i any = _mm256_setzero_si256();
  __m256i seen = _mm256_setzero_si256();
  __m256i lowest = _mm256_set1_epi64x(INT64_MAX);
  __m256i highest = _mm256_setzero_si256();
  auto* next = static_cast<std::uint8_t*>(out);
  for (std::size_t q = 0; q < quads; ++q, data += 4 * kTagWordBytes, next += 4 * 16) {
    const __m256i word = _mm256_shuffle_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(data)), big_endian);
    any = _mm256_or_si256(any, word);
    const __m256i channel = _mm256_and_si256(_mm256_srli_epi64(word, kTagWordChannelShift), three);
    __m256i time = _mm256_and_si256(word, time_mask);
    time = _mm256_sub_epi64(time, _mm256_and_si256(_mm256_cmpgt_epi64(time, last_in_period), period));
    lowest = _mm256_blendv_epi8(lowest, time, _mm256_cmpgt_epi64(lowest, time));
    highest = _mm256_blendv_epi8(highest, time, _mm256_cmpgt_epi64(time, highest));
    seen = _mm256_or_si256(seen, _mm256_sllv_epi64(one, channel));
    // offset[channel]: each 64-bit lane picked as the 32-bit pair (2c, 2c+1).
    const __m256i low_half = _mm256_slli_epi64(channel, 1);
    const __m256i pair = _mm256_or_si256(low_half, _mm256_slli_epi64(_mm256_add_epi64(low_half, one), 32));
    time = _mm256_add_epi64(time, _mm256_permutevar8x32_epi32(offsets, pair));
    const __m256i tags_0_2 = _mm256_unpacklo_epi64(channel, time);
    const __m256i tags_1_3 = _mm256_unpackhi_epi64(channel, time);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(next), _mm256_permute2x128_si256(tags_0_2, tags_1_3, 0x20));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(next + 32), _mm256_permute2x128_si256(tags_0_2, tags_1_3, 0x31));
  }
  alignas(32) std::uint64_t low[4], high[4];
  _mm256_store_si256(reinterpret_cast<__m256i*>(low), lowest);
  _mm256_store_si256(reinterpret_cast<__m256i*>(high), highest);
  TagRunSummary run;
  run.any_bits = lane_or(any);
  run.inputs_seen = static_cast<unsigned>(lane_or(seen));
  run.lowest = quads == 0 ? UINT64_MAX : *std::min_element(low, low + 4);
  run.highest = *std::max_element(high, high + 4);
  return run;
}

}  // namespace
#endif

template <class Tag>
bool decode_tag_run_vector(const std::uint8_t* data, std::size_t words, Tag* out,
                           const std::array<std::uint64_t, 4>& offset, TagRunSummary& summary) noexcept {
#if defined(__x86_64__)
  if (!processor_has_avx2()) return false;
  const std::size_t quads = words / 4;
  summary = decode_quads_avx2(data, quads, out, offset);
  const TagRunSummary rest =
      decode_tag_run_portable(data + 4 * quads * kTagWordBytes, words % 4, out + 4 * quads, offset);
  summary.any_bits |= rest.any_bits;
  summary.lowest = std::min(summary.lowest, rest.lowest);
  summary.highest = std::max(summary.highest, rest.highest);
  summary.inputs_seen |= rest.inputs_seen;
  return true;
#else
  (void)data, (void)words, (void)out, (void)offset, (void)summary;
  return false;
#endif
}

template <class Tag>
TagRunSummary decode_tag_run(const std::uint8_t* data, std::size_t words, Tag* out,
                             const std::array<std::uint64_t, 4>& offset) noexcept {
  TagRunSummary run;
  if (decode_tag_run_vector(data, words, out, offset, run)) return run;
  return decode_tag_run_portable(data, words, out, offset);
}

#define ZOLT_TAG_RUN_FOR(Tag)                                                                                       \
  template TagRunSummary decode_tag_run(const std::uint8_t*, std::size_t, Tag*,                                    \
                                        const std::array<std::uint64_t, 4>&) noexcept;                             \
  template TagRunSummary decode_tag_run_portable(const std::uint8_t*, std::size_t, Tag*,                           \
                                                 const std::array<std::uint64_t, 4>&) noexcept;                    \
  template bool decode_tag_run_vector(const std::uint8_t*, std::size_t, Tag*, const std::array<std::uint64_t, 4>&, \
                                      TagRunSummary&) noexcept;
ZOLT_TAG_RUN_FOR(TimeTag)
ZOLT_TAG_RUN_FOR(tt_tag)
#undef ZOLT_TAG_RUN_FOR

}  // namespace zolt::timing::detail

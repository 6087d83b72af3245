// Exported offline analysis functions. Each checks its pointers, hands the
// work to its module and turns exceptions (only allocation failure can
// happen) into a status.

#include "analysis/bin_histogram.hpp"
#include "analysis/cross_correlation.hpp"
#include "analysis/frequency_trace.hpp"
#include "analysis/g2_normalization.hpp"
#include "analysis/gaussian_peak.hpp"
#include "analysis/streaming_coincidences.hpp"
#include "api/boundary.hpp"
#include "zolt_timing.h"

namespace {

namespace zt = zolt::timing;
using zolt::timing::detail::any_null;
using zolt::timing::detail::guarded;

// An array argument that is null although it should hold values.
template <class T>
bool missing(const T* values, size_t count) noexcept {
  return values == nullptr && count > 0;
}

}  // namespace

extern "C" {

ZOLT_TIMING_API const char* zolt_analysis_version(void) { return "0.3.0"; }

ZOLT_TIMING_API tt_status zolt_analysis_count_bins(const tt_tag* tags, size_t count, int channels,
                                                   int64_t start_ps, int64_t bin_width_ps, size_t bins,
                                                   uint64_t* out) {
  if (missing(tags, count) || any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  return zt::count_bins(tags, count, zt::BinHistogramLayout{channels, start_ps, bin_width_ps, bins}, out);
}

ZOLT_TIMING_API tt_status zolt_analysis_xcorr_bin_count(int64_t range_ps, int64_t bin_width_ps, size_t* out) {
  if (any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  return zt::correlation_bin_count(range_ps, bin_width_ps, *out);
}

ZOLT_TIMING_API tt_status zolt_analysis_cross_correlation(const int64_t* a, size_t na, const int64_t* b, size_t nb,
                                                          int64_t range_ps, int64_t bin_width_ps,
                                                          int64_t offset_ps, uint64_t* counts, int64_t* lags,
                                                          size_t nbins) {
  if (missing(a, na) || missing(b, nb) || any_null(counts)) return TT_ERR_INVALID_ARGUMENT;
  return guarded([&] {
    return zt::cross_correlate({a, na}, {b, nb}, {range_ps, bin_width_ps, offset_ps}, counts, lags, nbins);
  });
}

ZOLT_TIMING_API tt_status zolt_analysis_fit_gaussian_peak(const int64_t* positions, const uint64_t* counts,
                                                          size_t n, int64_t fit_range,
                                                          zolt_analysis_gaussian_fit* out) {
  if (any_null(out) || (n > 0 && any_null(positions, counts))) return TT_ERR_INVALID_ARGUMENT;
  *out = zolt_analysis_gaussian_fit{};
  if (fit_range < 0) return TT_ERR_INVALID_ARGUMENT;
  return guarded([&] {
    *out = zt::estimate_gaussian_peak(positions, counts, n, fit_range);
    return TT_OK;
  });
}

ZOLT_TIMING_API tt_status zolt_analysis_normalize_g2(const uint64_t* counts, size_t n, int64_t bin_width_ps,
                                                     double* out, double f1, double f2, double f3) {
  if (missing(counts, n) || any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  return zt::normalize_g2(counts, n, bin_width_ps, {f1, f2, f3}, out);
}

ZOLT_TIMING_API tt_status zolt_analysis_frequency_trace(const int64_t* times, size_t n, int64_t window_ps,
                                                        zolt_analysis_frequency_point* out, size_t capacity,
                                                        size_t* out_count) {
  if (missing(times, n) || any_null(out_count)) return TT_ERR_INVALID_ARGUMENT;
  return guarded([&] { return zt::frequency_trace(times, n, window_ps, out, capacity, *out_count); });
}

ZOLT_TIMING_API tt_status zolt_analysis_count_coincidences(const tt_tag* tags, size_t count, int64_t window_ps,
                                                           const int64_t* offsets_ps, uint8_t mask,
                                                           zolt_analysis_coincidence_counts* out) {
  if (missing(tags, count) || any_null(out)) return TT_ERR_INVALID_ARGUMENT;
  return guarded([&] {
    return zt::count_streaming_coincidences(tags, count, {window_ps, offsets_ps, mask}, *out);
  });
}

}  // extern "C"

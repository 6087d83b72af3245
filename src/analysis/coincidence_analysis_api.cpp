// Exported host-side coincidence analysis.

#include <algorithm>

#include "analysis/coincidence_analysis.hpp"
#include "api/boundary.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

CoincidenceWindowConfig from_public(const tt_coincidence_window_config* config) {
  CoincidenceWindowConfig internal;
  if (config == nullptr) {
    internal.group_mask = kAllInputsMask;
    return internal;
  }
  std::copy_n(config->offset_ps, kInputCount, internal.offset_ps.begin());
  std::copy_n(config->window_ps, kInputCount, internal.window_ps.begin());
  internal.group_mask = config->group_mask;
  return internal;
}

tt_coincidence_analysis to_public(const CoincidenceAnalysis& result) noexcept {
  tt_coincidence_analysis out{};
  std::copy(result.singles.begin(), result.singles.end(), out.singles);
  out.total = result.total;
  std::copy(result.pairs.begin(), result.pairs.end(), out.pairs);
  std::copy(result.triples.begin(), result.triples.end(), out.triples);
  out.quadruples = result.quadruples;
  out.effective_mask = result.effective_mask;
  std::copy(result.offset_ps.begin(), result.offset_ps.end(), out.offset_ps);
  std::copy(result.window_ps.begin(), result.window_ps.end(), out.window_ps);
  return out;
}

tt_status analyze_public_tags(const tt_tag* tags, std::size_t count, const tt_coincidence_window_config* config,
                              tt_coincidence_analysis* out) {
  *out = to_public(analyze_coincidences(tags, count, from_public(config)));
  return TT_OK;
}

}  // namespace
}  // namespace zolt::timing

extern "C" {

ZOLT_TIMING_API tt_status tt_analyze_coincidences(const tt_tag* tags, size_t count,
                                                  const tt_coincidence_window_config* config,
                                                  tt_coincidence_analysis* out) {
  if (zolt::timing::detail::any_null(out) || (tags == nullptr && count != 0)) return TT_ERR_INVALID_ARGUMENT;
  return zolt::timing::detail::guarded([&] { return zolt::timing::analyze_public_tags(tags, count, config, out); });
}

}  // extern "C"

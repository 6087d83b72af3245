// A photon-pair measurement without hardware: the virtual instrument encodes
// a pair source on inputs 0 and 1 (input 1 delayed by 2 ns, 60 ps jitter)
// plus background on inputs 2 and 3 into the packed-delta wire format; the
// bytes are recorded into a stream file, the file is decoded back into tags,
// and the tags are analysed: coincidences, cross-correlation, peak width,
// and a tag file for keeping.
//
// Usage: zolt_record_and_analyze [directory]   (default: the temporary directory)

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "zolt_sim/encoders.hpp"
#include "zolt_timing.h"

namespace {

constexpr std::int64_t kPairDelayPs = 2000;

// Poisson pair source and two background inputs, sorted by time.
std::vector<zolt_sim::InputEvent> simulate(double seconds) {
  std::mt19937_64 random(2026);
  std::exponential_distribution<double> pair_gap(2e5), background_gap(5e5);
  std::normal_distribution<double> jitter(0.0, 60.0);
  std::vector<zolt_sim::InputEvent> events;
  const auto end_ps = static_cast<std::int64_t>(seconds * 1e12);
  for (double t = 0; t < end_ps; t += pair_gap(random) * 1e12) {
    const auto start = static_cast<std::int64_t>(t);
    events.push_back({0, start});
    events.push_back({1, start + kPairDelayPs + static_cast<std::int64_t>(jitter(random))});
  }
  for (std::uint8_t input : {2, 3}) {
    for (double t = 0; t < end_ps; t += background_gap(random) * 1e12) {
      events.push_back({input, static_cast<std::int64_t>(t)});
    }
  }
  std::stable_sort(events.begin(), events.end(), [](const auto& a, const auto& b) { return a.time_ps < b.time_ps; });
  return events;
}

bool failed(tt_status status, const char* what, const char* detail) {
  if (status == TT_OK) return false;
  std::fprintf(stderr, "%s: %s (%s)\n", what, tt_status_string(status), detail);
  return true;
}

bool record(const std::string& path, const std::vector<zolt_sim::InputEvent>& events) {
  zolt_sim::PackedDeltaEncoder encoder;  // 16-bit deltas, 8 ps quantum
  std::vector<std::uint8_t> bytes;
  for (const auto& event : events) encoder.encode(event, bytes);
  encoder.finish(bytes);

  tt_stream_file_options options{};
  options.stream_format = TT_STREAM_FORMAT_PACKED_DELTA;
  options.mode = 1;  // external reference
  options.stream_transport = TT_STREAM_TRANSPORT_USB_FIFO;
  tt_stream_file_writer* writer = nullptr;
  if (failed(tt_stream_file_writer_open(&writer, path.c_str(), &options), "open stream file", path.c_str())) {
    return false;
  }
  const bool ok = !failed(tt_stream_file_writer_write(writer, bytes.data(), bytes.size(), nullptr), "write",
                          tt_stream_file_writer_last_error(writer));
  tt_stream_file_writer_close(writer);
  tt_stream_file_writer_free(writer);
  std::printf("recorded %zu events as %zu packed-delta bytes into %s\n", events.size(), bytes.size(), path.c_str());
  return ok;
}

bool decode(const std::string& path, std::vector<tt_tag>& tags) {
  tt_stream_file_reader* reader = nullptr;
  if (failed(tt_stream_file_reader_open(&reader, path.c_str()), "open stream file", path.c_str())) return false;
  tt_stream_tag_summary summary{};
  bool ok = !failed(tt_stream_file_reader_summarize_tags(reader, &summary), "summarize",
                    tt_stream_file_reader_last_error(reader));
  tags.resize(summary.tags);
  std::size_t done = 0;
  while (ok && done < tags.size()) {
    std::size_t count = 0;
    ok = !failed(tt_stream_file_reader_read_tags(reader, tags.data() + done, tags.size() - done, &count), "decode",
                 tt_stream_file_reader_last_error(reader));
    if (count == 0) break;
    done += count;
  }
  tags.resize(done);
  tt_stream_file_reader_free(reader);
  std::printf("decoded %zu tags (inputs 0..3: %llu %llu %llu %llu), %.3f ms of data\n", tags.size(),
              static_cast<unsigned long long>(summary.input_tags[0]),
              static_cast<unsigned long long>(summary.input_tags[1]),
              static_cast<unsigned long long>(summary.input_tags[2]),
              static_cast<unsigned long long>(summary.input_tags[3]),
              static_cast<double>(summary.last_time_ps - summary.first_time_ps) * 1e-9);
  return ok;
}

void coincidences(const std::vector<tt_tag>& tags) {
  tt_coincidence_window_config config{};
  config.offset_ps[1] = -kPairDelayPs;  // bring input 1 back onto input 0
  for (auto& window : config.window_ps) window = 250;
  tt_coincidence_analysis result{};
  if (failed(tt_analyze_coincidences(tags.data(), tags.size(), &config, &result), "coincidences", "")) return;
  std::printf("coincidences within +-250 ps: (0,1) %llu, (0,2) %llu, (2,3) %llu\n",
              static_cast<unsigned long long>(result.pairs[0]), static_cast<unsigned long long>(result.pairs[1]),
              static_cast<unsigned long long>(result.pairs[5]));
}

void correlation(const std::vector<tt_tag>& tags) {
  std::vector<std::int64_t> a, b;
  for (const auto& tag : tags) {
    if (tag.channel == 0) a.push_back(tag.time_ps);
    if (tag.channel == 1) b.push_back(tag.time_ps);
  }
  constexpr std::int64_t kRange = 5000, kBin = 20;
  std::size_t bins = 0;
  zolt_analysis_xcorr_bin_count(kRange, kBin, &bins);
  std::vector<std::uint64_t> counts(bins);
  std::vector<std::int64_t> lags(bins);
  if (failed(zolt_analysis_cross_correlation(a.data(), a.size(), b.data(), b.size(), kRange, kBin, 0, counts.data(),
                                             lags.data(), bins),
             "cross-correlation", "")) {
    return;
  }
  zolt_analysis_gaussian_fit peak{};
  if (failed(zolt_analysis_fit_gaussian_peak(lags.data(), counts.data(), bins, 600, &peak), "peak", "")) return;
  std::printf("cross-correlation 0->1 over +-5 ns in 20 ps bins: peak at %.0f ps, FWHM %.0f ps (sigma %.0f ps)\n",
              peak.mean, peak.fwhm, peak.sigma);
}

bool keep_as_tag_file(const std::string& path, const std::vector<tt_tag>& tags) {
  tt_tag_file_writer* writer = nullptr;
  if (failed(tt_tag_file_writer_open(&writer, path.c_str()), "open tag file", path.c_str())) return false;
  const bool ok = !failed(tt_tag_file_writer_write(writer, tags.data(), tags.size(), nullptr), "write tags",
                          tt_tag_file_writer_last_error(writer));
  std::printf("kept %llu tags in %s\n", static_cast<unsigned long long>(tt_tag_file_writer_tag_count(writer)),
              tt_tag_file_writer_current_path(writer));
  tt_tag_file_writer_close(writer);
  tt_tag_file_writer_free(writer);
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* tmp = std::getenv("TMPDIR");
  const std::string directory = argc > 1 ? argv[1] : (tmp && *tmp ? tmp : "/tmp");
  const std::string stream_path = directory + "/zolt_demo_pairs.stream";
  const std::string tag_path = directory + "/zolt_demo_pairs.tags";

  std::vector<tt_tag> tags;
  if (!record(stream_path, simulate(0.2)) || !decode(stream_path, tags)) return 1;
  coincidences(tags);
  correlation(tags);
  const bool kept = keep_as_tag_file(tag_path, tags);
  std::remove(stream_path.c_str());
  std::remove(tag_path.c_str());
  return kept ? 0 : 1;
}

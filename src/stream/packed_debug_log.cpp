#include "stream/packed_debug_log.hpp"

#include <cstdio>
#include <cstring>
#include <utility>

#include "api/env_switch.hpp"

namespace zolt::timing {

namespace {
EnvSwitch packed_debug_switch("ZOLT_PACKED_DEBUG", EnvSwitch::Rule::set_at_all);
}  // namespace

PackedDebugLog::PackedDebugLog() : enabled_(packed_debug_switch.on()) {}

PackedDebugLog::PackedDebugLog(Sink sink) : sink_(std::move(sink)), enabled_(static_cast<bool>(sink_)) {}

void PackedDebugLog::emit(std::string_view text) {
  ++lines_;
  if (sink_) {
    sink_(text);
    return;
  }
  // One write per line so that lines from several decoders do not interleave.
  static constexpr std::string_view kPrefix = "packed-decoder: ";
  char full[kPrefix.size() + 256 + 1];
  std::memcpy(full, kPrefix.data(), kPrefix.size());
  std::memcpy(full + kPrefix.size(), text.data(), text.size());
  full[kPrefix.size() + text.size()] = '\n';
  std::fwrite(full, 1, kPrefix.size() + text.size() + 1, stderr);
}

}  // namespace zolt::timing

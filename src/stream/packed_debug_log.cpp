#include "stream/packed_debug_log.hpp"

#include <cstdio>
#include <utility>

#include "api/env_switch.hpp"

namespace zolt::timing {

namespace {
EnvSwitch packed_debug_switch("ZOLT_PACKED_DEBUG", EnvSwitch::Rule::set_at_all);
}  // namespace

PackedDebugLog::PackedDebugLog() : enabled_(packed_debug_switch.on()) {}

PackedDebugLog::PackedDebugLog(Sink sink) : sink_(std::move(sink)), enabled_(static_cast<bool>(sink_)) {}

void PackedDebugLog::emit(const std::string& text) {
  ++lines_;
  if (sink_) {
    sink_(text);
    return;
  }
  // One write per line so that lines from several decoders do not interleave.
  const std::string full = "packed-decoder: " + text + "\n";
  std::fwrite(full.data(), 1, full.size(), stderr);
}

}  // namespace zolt::timing

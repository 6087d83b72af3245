#include "link/device_impl.hpp"

#include <algorithm>
#include <cstdio>

#include "link/clock.hpp"
#include "link/command_frame.hpp"

namespace zolt::timing {
namespace {

int effective_timeout(int timeout_ms) noexcept {
  return timeout_ms > 0 ? timeout_ms : DeviceImpl::kDefaultReplyTimeoutMs;
}

// Links treat a timeout of 0 by their own rules; a reader whose time is up
// asks for one last millisecond instead.
int remaining_ms(std::int64_t deadline) noexcept {
  return static_cast<int>(std::max<std::int64_t>(deadline - monotonic_ms(), 1));
}

}  // namespace

bool DeviceImpl::cmd_write(const std::uint8_t* data, std::size_t length) {
  return command_link().write_all(data, length);
}

bool DeviceImpl::cmd_read_exact(std::uint8_t* buffer, std::size_t length, int timeout_ms) {
  return command_link().read_exact(buffer, length, timeout_ms);
}

void DeviceImpl::cmd_purge() { command_link().purge(); }

std::string DeviceImpl::cmd_last_error() const { return command_link().last_error(); }

DeviceImpl::FrameRead DeviceImpl::read_response(std::uint8_t rid, std::uint8_t* frame, int timeout_ms) {
  const std::int64_t deadline = monotonic_ms() + effective_timeout(timeout_ms);
  ByteLink& link = command_link();
  // No start marker on the wire: resynchronise on the RID byte by byte.
  std::uint8_t byte = 0;
  do {
    if (monotonic_ms() >= deadline) return FrameRead::deadline_passed;
    if (!link.read_exact(&byte, 1, remaining_ms(deadline))) return FrameRead::link_failed;
  } while (byte != rid);
  frame[0] = rid;
  return link.read_exact(frame + 1, detail::kFrameSize - 1, remaining_ms(deadline)) ? FrameRead::ok
                                                                                      : FrameRead::link_failed;
}

bool DeviceImpl::cmd_read_response_frame(std::uint8_t rid, std::uint8_t* frame, int timeout_ms) {
  return frame != nullptr && read_response(rid, frame, timeout_ms) == FrameRead::ok;
}

tt_status DeviceImpl::refuse(const char* message, tt_status status) {
  last_error_ = message;
  return status;
}

tt_status DeviceImpl::link_failure() {
  last_error_ = cmd_last_error();
  return last_error_.find("timeout") != std::string::npos ? TT_ERR_TIMEOUT : TT_ERR_IO;
}

tt_status DeviceImpl::rid_timeout(std::uint8_t rid) {
  char text[64];
  std::snprintf(text, sizeof text, "timed out waiting for RID 0x%02X", static_cast<unsigned>(rid));
  last_error_ = text;
  return TT_ERR_TIMEOUT;
}

tt_status DeviceImpl::exchange(std::uint8_t id, const std::uint8_t* payload, std::size_t payload_length,
                               std::uint8_t* reply_payload, int timeout_ms) {
  const detail::CommandFrame command = detail::build_command_frame(id, payload, payload_length);
  if (!cmd_write(command.data(), command.size())) {
    last_error_ = cmd_last_error();
    return TT_ERR_IO;
  }
  const std::uint8_t rid = detail::response_id(id);
  detail::CommandFrame reply{};
  switch (read_response(rid, reply.data(), timeout_ms)) {
    case FrameRead::ok:
      if (reply_payload != nullptr) std::copy(reply.begin() + 1, reply.end(), reply_payload);
      return TT_OK;
    case FrameRead::deadline_passed:
      // Bytes kept coming but never the reply: the link itself is fine.
      return rid_timeout(rid);
    case FrameRead::link_failed:
      break;
  }
  return link_failure();
}

tt_status DeviceImpl::send_command(std::uint8_t id, const std::uint8_t* payload, std::size_t payload_length,
                                   std::uint8_t* reply_payload, int timeout_ms) {
  if (!command_link_usable()) return refuse("port not open", TT_ERR_INVALID_STATE);
  return exchange(id, payload, payload_length, reply_payload, timeout_ms);
}

tt_status DeviceImpl::own_exchange(const char* refusal, std::uint8_t id, const std::uint8_t* payload,
                                   std::size_t payload_length, std::uint8_t* reply_payload, int timeout_ms) {
  if (refusal != nullptr && measurement_stream_active_) return refuse(refusal, TT_ERR_INVALID_STATE);
  if (!command_link_usable()) return refuse("port not open", TT_ERR_INVALID_STATE);
  cmd_purge();
  return exchange(id, payload, payload_length, reply_payload, timeout_ms);
}

tt_status DeviceImpl::read_frame_by_id(std::uint8_t rid, std::uint8_t* payload, int timeout_ms) {
  if (!command_link_usable()) return refuse("port not open", TT_ERR_INVALID_STATE);
  const std::int64_t deadline = monotonic_ms() + effective_timeout(timeout_ms);
  detail::CommandFrame frame{};
  // Frames sent by the instrument itself arrive whole; anything else in
  // between is a frame of another kind and is dropped as a whole.
  while (monotonic_ms() < deadline) {
    if (!cmd_read_exact(frame.data(), frame.size(), remaining_ms(deadline))) {
      // Running out of time is "the frame never came", whatever the link
      // calls it; a broken link keeps its own text.
      const tt_status status = link_failure();
      return status == TT_ERR_TIMEOUT ? rid_timeout(rid) : status;
    }
    if (frame[0] == rid) {
      if (payload != nullptr) std::copy(frame.begin() + 1, frame.end(), payload);
      return TT_OK;
    }
  }
  return rid_timeout(rid);
}

}  // namespace zolt::timing

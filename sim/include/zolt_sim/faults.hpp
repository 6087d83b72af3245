#pragma once

// Misbehaviour the virtual instrument can be switched into, so that the host's
// handling of a silent, slow or confused instrument can be tested. The reply
// faults apply to replies only (frames answering a command); unsolicited
// frames and stream bytes are sent as they are.

#include <cstdint>
#include <vector>

namespace zolt_sim {

struct Faults {
  // No replies at all. Handlers still run (a command still takes effect).
  bool silent = false;
  // The next N replies are swallowed; counts down as replies are dropped.
  int drop_replies = 0;
  // Each reply reaches the host this many milliseconds after the command.
  // Bytes keep their order: whatever is sent after a delayed reply waits too.
  int reply_delay_ms = 0;
  // Sent in front of every reply.
  std::vector<std::uint8_t> garbage_before_reply;
  // The last payload byte of every reply is inverted, so an echo check fails.
  bool corrupt_echo = false;
  // Frames with id foreign_rid (payload of zeros) sent in front of every reply.
  int foreign_frames_before_reply = 0;
  std::uint8_t foreign_rid = 0xD8;
};

}  // namespace zolt_sim

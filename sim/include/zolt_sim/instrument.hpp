#pragma once

// The virtual instrument: the instrument side of the wire, independent of the
// front end that carries its bytes (a pseudo-terminal, an emulated FTDI
// module). A front end moves bytes between the host and the instrument with
// the four host_* calls; everything else is for the code that sets up a
// scenario (handlers, identity, faults) and for tests that check what the
// host put on the wire.
//
// Threading: every member may be called from any thread. Handlers run on the
// thread that called host_write, one command at a time, without the
// instrument's state lock held: a handler may call send_frame, send_bytes,
// the identity and fault setters, but must not call host_write.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "zolt_sim/faults.hpp"
#include "zolt_sim/frame.hpp"

namespace zolt_sim {

class Instrument;
class OutputQueue;

// Answers one command. Returning a payload sends the reply frame (RID = id |
// 0x80) through the fault switches; std::nullopt sends nothing, as the real
// instrument does for commands it does not answer.
using CommandHandler = std::function<std::optional<Payload>(Instrument&, const Command&)>;

// The three identity texts, answered to commands 0x41, 0x42 and 0x43.
enum class IdentityField { manufacturer, device_class, serial };

// One frame as the instrument received it, with the arrival time of its last
// byte on the steady clock.
struct ReceivedFrame {
  Frame bytes{};
  std::chrono::steady_clock::time_point arrival;
};

class Instrument {
 public:
  // Starts with the identity "ZOLT" / "TDC" / "SIM00001", the identity
  // handlers installed and no faults.
  Instrument();
  ~Instrument();
  Instrument(const Instrument&) = delete;
  Instrument& operator=(const Instrument&) = delete;

  // ---- byte channel, used by front ends ----

  // Bytes from the host. Complete 9-byte frames are recorded and dispatched
  // to the handler of their id; a partial frame waits for its remaining
  // bytes. Ignored once the link is closed.
  void host_write(const std::uint8_t* data, std::size_t length);
  // Bytes for the host: waits up to timeout_ms for at least one byte to be
  // due, then copies what is due (up to capacity). 0 on timeout or when the
  // link is closed.
  std::size_t host_read(std::uint8_t* out, std::size_t capacity, int timeout_ms);
  // Bytes due for the host now.
  std::size_t host_available() const;
  // Drops the bytes that have reached the host side but were not read yet.
  // Delayed replies still on their way are not affected, as on a real wire.
  void host_purge();

  // ---- behaviour ----

  // Installs (or, with an empty handler, removes) the handler for a command
  // id. Ids without a handler get no reply.
  void set_handler(std::uint8_t command_id, CommandHandler handler);
  bool has_handler(std::uint8_t command_id) const;

  // An unsolicited frame (such as a measurement stream frame, RID 0xD8). Not
  // subject to the reply faults.
  void send_frame(std::uint8_t rid, const Payload& payload);
  // Raw bytes for the host (timestamp stream data, or deliberate junk).
  void send_bytes(const std::uint8_t* data, std::size_t length);

  // Identity texts: the first 8 bytes of `text`, left-aligned, padded with
  // NUL bytes. Any bytes are accepted, including blanks and non-printable
  // ones, so that the host's checks can be exercised.
  void set_identity(IdentityField field, std::string_view text);
  void set_identity_payload(IdentityField field, const Payload& payload);
  Payload identity_payload(IdentityField field) const;

  // ---- fault injection ----

  void set_faults(const Faults& faults);
  Faults faults() const;
  // Convenience for the most common switches.
  void set_silent(bool silent);
  void drop_next_replies(int count);
  // The link goes away: pending bytes are dropped, host_write is ignored,
  // host_read returns 0 at once, and front ends hang up on the host.
  void close_link();
  bool link_closed() const;

  // ---- observation, for tests ----

  std::vector<ReceivedFrame> received_frames() const;
  std::size_t received_count() const;
  void clear_received();
  // Waits until at least `count` frames have been received in total (since
  // the last clear_received); false on timeout.
  bool wait_for_received(std::size_t count, int timeout_ms) const;
  // Replies actually put on the wire (after the faults were applied).
  std::size_t replies_sent() const;

 private:
  void dispatch(const Frame& frame);
  void deliver_reply(std::uint8_t command_id, Payload payload);
  void install_identity_handlers();

  mutable std::mutex mutex_;
  mutable std::condition_variable received_changed_;
  std::mutex dispatch_mutex_;  // one command at a time; held across handlers
  Frame assembly_{};
  std::size_t assembled_ = 0;  // guarded by dispatch_mutex_
  std::map<std::uint8_t, CommandHandler> handlers_;
  Payload identity_[3]{};
  Faults faults_;
  bool link_closed_ = false;
  std::vector<ReceivedFrame> received_;
  std::size_t replies_sent_ = 0;
  std::unique_ptr<OutputQueue> output_;
};

}  // namespace zolt_sim

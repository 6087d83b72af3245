#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>

#include "link/byte_link.hpp"
#include "link/serial_port.hpp"
#include "usb/ftdi_stream_reader.hpp"
#include "zolt_timing.h"

namespace zolt::timing {

// The instrument seen through its command link. Owns the links and speaks the
// 9-byte command frame protocol; every device operation goes through it.
//
// Status mapping of the command layer: no usable link -6 ("port not open"), a
// failed write -2, a failed read -3 when the link's text contains "timeout"
// and -2 otherwise; the link's text becomes the last error.
class DeviceImpl {
 public:
  // Readers given a timeout of 0 (or less) wait this long.
  static constexpr int kDefaultReplyTimeoutMs = 250;

  const std::string& last_error() const noexcept { return last_error_; }
  void set_last_error(std::string text) { last_error_ = std::move(text); }
  void clear_last_error() noexcept { last_error_.clear(); }

  SerialPort& serial_port() noexcept { return serial_; }
  const SerialPort& serial_port() const noexcept { return serial_; }
  FtdiStreamReader& ftdi_reader() noexcept { return ftdi_; }
  const FtdiStreamReader& ftdi_reader() const noexcept { return ftdi_; }

  // The link that carries commands now. Every operation below goes through
  // it, so adding a link means changing only select_command_link.
  ByteLink& command_link() noexcept { return select_command_link(*this); }
  const ByteLink& command_link() const noexcept { return select_command_link(*this); }
  bool command_link_usable() noexcept { return command_link().is_open(); }

  // ---- raw access to the command link ----
  bool cmd_write(const std::uint8_t* data, std::size_t length);
  bool cmd_read_exact(std::uint8_t* buffer, std::size_t length, int timeout_ms);
  void cmd_purge();
  std::string cmd_last_error() const;

  // Reads one response frame (9 bytes) whose first byte is `rid`, skipping
  // any bytes in front of it one at a time. False on timeout or link failure.
  bool cmd_read_response_frame(std::uint8_t rid, std::uint8_t* frame, int timeout_ms);

  // ---- command exchanges ----

  // Writes the frame (id, payload right-aligned and cut to 8 bytes) and waits
  // for the reply with RID id | 0x80; its 8 payload bytes go to
  // reply_payload when that is not null. payload may be null. No purge.
  tt_status send_command(std::uint8_t id, const std::uint8_t* payload, std::size_t payload_length,
                         std::uint8_t* reply_payload, int timeout_ms);

  // The exchange of operations that must own the link: refuses with
  // `refusal` (-6) while a measurement stream runs (nullptr: no such guard;
  // operations with other guards check them before calling), purges the
  // link, then writes and reads like send_command.
  tt_status own_exchange(const char* refusal, std::uint8_t id, const std::uint8_t* payload,
                         std::size_t payload_length, std::uint8_t* reply_payload, int timeout_ms);

  // Waits for a frame the instrument sends by itself (such as RID 0xD8),
  // discarding whole frames with other RIDs. payload may be null. When the
  // frame does not come in time: -3, "timed out waiting for RID 0x%02X".
  tt_status read_frame_by_id(std::uint8_t rid, std::uint8_t* payload, int timeout_ms);

  // ---- the USB link (usb_command_bridge.cpp) ----

  // True when commands travel over the FTDI reader: it holds an open handle
  // and was opened as the command bridge.
  bool usb_command_bridge_active() const noexcept { return usb_command_bridge_ && ftdi_.is_open(); }
  // Opens the FTDI reader as the asynchronous command bridge and routes
  // commands over it. False with the last error "FTDI async command bridge:
  // <reason>" when the module cannot be opened.
  bool open_usb_command_bridge(const std::string& serial_number, const std::string& description);
  // Opens the FTDI reader as the synchronous FIFO stream; commands then have
  // no USB path. False with "FTDI sync FIFO stream: <reason>".
  bool open_usb_stream(const std::string& serial_number, const std::string& description);
  // Closes the FTDI reader and releases its claim.
  void close_usb_link() noexcept;

  // Reads and discards what the bridge delivers until nothing has come for
  // idle_ms or max_ms have passed, then purges. Errors are ignored.
  void drain_usb_command_bridge_quiet(int idle_ms, int max_ms);
  // Selects the internal reference clock without awaiting replies, so that
  // commands work while an external reference is missing (about 280 ms).
  void force_internal_reference_for_command_link();
  // Stops every stream the instrument may be running and drains the bridge,
  // bringing the instrument back to an idle, answering state (about 1 s).
  void recover_usb_command_bridge();

  // ---- opening and closing (device_open.cpp) ----

  // Opens the link `locator` names (see classify_locator). A serial path is
  // opened at `baud` and nothing is sent; failure: -2 with the port's text.
  // A USB locator opens the FTDI module as command bridge (baud ignored),
  // brings the instrument to an idle state and, with
  // ZOLT_FORCE_INTERNAL_ON_OPEN set, selects its internal reference; failure:
  // -7 without the FTDI runtime, else -2, with the reason as last error.
  tt_status open(const std::string& locator, int baud);
  // Closes both links and forgets everything about the open; returns 0.
  tt_status close() noexcept;

  const std::string& port_path() const noexcept { return port_path_; }
  int baud() const noexcept { return baud_; }

  // ---- identity (device_identity.cpp) ----

  // Reads the identity texts (commands 0x41..0x43, each with timeout_ms),
  // checks them and joins them. On a device opened over USB the host makes
  // the identity "ZOLT-TDC-<USB serial>" instead, also when the replies are
  // not printable. -4 (with the three replies in hex as last error) when a
  // text is empty or not printable; a failed command returns its status.
  // `identity` is zeroed on every failure.
  tt_status identify(tt_identity& identity, int timeout_ms);
  // Replaces the identity by the host-made one when the device was opened
  // over USB and a USB serial is known.
  void apply_host_identity_override(tt_identity& identity) const;
  // The USB serial the host identity is made from: the serial of the module
  // opened, else the FTDI reader's serial, its description, or the selector
  // given at open; empty when none is known.
  std::string effective_usb_serial() const;
  bool host_identity_override() const noexcept { return host_identity_override_; }

  // ---- state the guards look at ----
  bool measurement_stream_active() const noexcept { return measurement_stream_active_; }
  void set_measurement_stream_active(bool active) noexcept { measurement_stream_active_ = active; }

 private:
  enum class FrameRead { ok, link_failed, deadline_passed };

  // The one place that chooses the command link, for const and non-const use.
  template <class Self>
  static std::conditional_t<std::is_const_v<Self>, const ByteLink&, ByteLink&> select_command_link(
      Self& self) noexcept {
    if (self.usb_command_bridge_active()) return self.ftdi_;
    return self.serial_;
  }

  FrameRead read_response(std::uint8_t rid, std::uint8_t* frame, int timeout_ms);
  tt_status exchange(std::uint8_t id, const std::uint8_t* payload, std::size_t payload_length,
                     std::uint8_t* reply_payload, int timeout_ms);
  tt_status refuse(const char* message, tt_status status);
  tt_status link_failure();  // last error = link text; -3 for "timeout", else -2
  tt_status rid_timeout(std::uint8_t rid);
  tt_status open_serial(const std::string& path, int baud);
  tt_status open_ftdi_async(const std::string& selector);
  void forget_usb_open() noexcept;

  SerialPort serial_;
  FtdiStreamReader ftdi_;
  bool usb_command_bridge_ = false;  // ftdi_ was opened as the command bridge
  bool measurement_stream_active_ = false;
  std::string last_error_;
  // What the open established. Declared after the links, so these texts are
  // freed before the FTDI reader and then the serial port are closed.
  std::string port_path_;
  int baud_ = 0;
  bool host_identity_override_ = false;  // opened over the USB command bridge
  std::string usb_selector_;             // as given in the USB locator
  std::string opened_usb_serial_;        // serial of the module actually opened
  std::string usb_port_label_;           // "<description> [<serial>]" of that module
};

}  // namespace zolt::timing

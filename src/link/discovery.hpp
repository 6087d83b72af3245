#pragma once

// Finding instruments: FTDI USB stream modules (named by the host, nothing is
// sent to them) and serial ports that answer the identity commands.

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "zolt_timing.h"

namespace zolt::timing {

// One instrument found. USB entries carry the module's names, which
// tt_open_serial matches against; serial entries only their identity serial.
struct DiscoveredDevice {
  std::string port;           // serial path, or "ftdi://<interface serial>"
  std::string serial_number;  // interface serial for USB, identity serial otherwise
  std::string module_serial;  // USB only: the module's serial, lower case
  std::string description;    // USB only: the interface's description
};

// Entries and their identities, index for index.
struct Discovery {
  std::vector<DiscoveredDevice> devices;
  std::vector<tt_identity> identities;
};

// Serial device paths under `device_root` ("/dev" unless changed): each
// serial/by-id link is listed under its by-id name, ttyUSB* and ttyACM*
// only when no by-id link resolves to them; sorted.
std::vector<std::string> list_serial_ports(const std::string& device_root);
std::vector<std::string> list_serial_ports();

// Adds the paths matching `pattern` to `ports`. With `resolve`, each match's
// real path is remembered in `seen`; without, a match already in `seen` is
// skipped.
void add_globbed_ports(std::set<std::string>& seen, std::vector<std::string>& ports, const std::string& pattern,
                       bool resolve);

// Opens `port` for a moment and reads the instrument's identity. The port is
// closed again before returning, whatever the outcome.
tt_status probe_identity(const std::string& port, int baud, int timeout_ms, tt_identity& identity);

// USB modules first, then the serial ports that answer at `baud`.
Discovery discover_all(int baud, int timeout_ms);

// The port of the entry named by `text`: an entry whose identity serial is
// `text` (a USB entry before a serial one), else a USB entry whose serial,
// module serial or description equals `text` regardless of case.
std::optional<std::string> port_for_serial(const Discovery& found, const std::string& text);

namespace detail {

// Where serial ports are looked for. Tests point it at a tree of their own.
std::string serial_device_root();
void set_serial_device_root(std::string root);

}  // namespace detail

}  // namespace zolt::timing

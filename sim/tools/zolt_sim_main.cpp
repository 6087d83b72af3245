// zolt-sim: a virtual instrument on a pseudo-terminal. Prints the terminal's
// path on one line and serves until interrupted, so that an application can
// be developed and tested without hardware:
//
//   port=$(zolt-sim &)   ...   my_app "$port"

#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "zolt_sim/instrument.hpp"
#include "zolt_sim/pty_front_end.hpp"

namespace {

constexpr const char* kUsage =
    "usage: zolt-sim [options]\n"
    "\n"
    "Starts a virtual ZOLT time tagger on a pseudo-terminal, prints the\n"
    "terminal's device path on one line, and serves until interrupted\n"
    "(Ctrl-C or SIGTERM). Open the printed path as you would /dev/ttyUSB0.\n"
    "\n"
    "identity (answers to commands 0x41..0x43; at most 8 bytes each;\n"
    "\\xNN writes any byte, \\\\ a backslash):\n"
    "  --manufacturer TEXT     default ZOLT\n"
    "  --device-class TEXT     default TDC\n"
    "  --serial TEXT           default SIM00001\n"
    "\n"
    "faults:\n"
    "  --silent                never reply\n"
    "  --drop-replies N        swallow the first N replies\n"
    "  --reply-delay-ms N      deliver every reply N ms late\n"
    "  --garbage HEX           send these bytes (e.g. A55A00) before every reply\n"
    "  --corrupt-echo          invert the last payload byte of every reply\n"
    "  --foreign-frames N      send N frames of another id before every reply\n"
    "  --foreign-rid HEX       id of those frames (default D8)\n"
    "\n"
    "  --help                  this text\n";

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> unescape(std::string_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (i + 1 < text.size() && text[i + 1] == '\\') {
      bytes += '\\';
      ++i;
    } else if (i + 3 < text.size() && text[i + 1] == 'x' && hex_digit(text[i + 2]) >= 0 && hex_digit(text[i + 3]) >= 0) {
      bytes += static_cast<char>(hex_digit(text[i + 2]) * 16 + hex_digit(text[i + 3]));
      i += 3;
    } else {
      return std::nullopt;
    }
  }
  return bytes;
}

std::optional<std::vector<std::uint8_t>> parse_hex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<std::uint8_t> bytes;
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = hex_digit(text[i]);
    const int low = hex_digit(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(high * 16 + low));
  }
  return bytes;
}

std::optional<int> parse_count(std::string_view text) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  int value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return value;
}

int usage_error(const std::string& message) {
  std::fprintf(stderr, "zolt-sim: %s\n(see zolt-sim --help)\n", message.c_str());
  return 2;
}

struct Options {
  bool help = false;
  zolt_sim::Faults faults;
  std::optional<std::string> identity[3];
};

// Returns an error message, or nullopt when the arguments were understood.
std::optional<std::string> parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    if (option == "--help" || option == "-h") {
      options.help = true;
      continue;
    }
    if (option == "--silent") {
      options.faults.silent = true;
      continue;
    }
    if (option == "--corrupt-echo") {
      options.faults.corrupt_echo = true;
      continue;
    }
    if (i + 1 >= argc) return "unknown option or missing value: " + std::string(option);
    const std::string_view value = argv[++i];
    const auto bad_value = [&] { return "bad value for " + std::string(option) + ": " + std::string(value); };
    if (option == "--manufacturer" || option == "--device-class" || option == "--serial") {
      const std::size_t field = option == "--manufacturer" ? 0 : option == "--device-class" ? 1 : 2;
      options.identity[field] = unescape(value);
      if (!options.identity[field] || options.identity[field]->size() > 8) return bad_value();
    } else if (option == "--drop-replies" || option == "--reply-delay-ms" || option == "--foreign-frames") {
      const auto count = parse_count(value);
      if (!count) return bad_value();
      if (option == "--drop-replies") options.faults.drop_replies = *count;
      if (option == "--reply-delay-ms") options.faults.reply_delay_ms = *count;
      if (option == "--foreign-frames") options.faults.foreign_frames_before_reply = *count;
    } else if (option == "--garbage") {
      const auto bytes = parse_hex(value);
      if (!bytes) return bad_value();
      options.faults.garbage_before_reply = *bytes;
    } else if (option == "--foreign-rid") {
      const auto bytes = parse_hex(value);
      if (!bytes || bytes->size() != 1) return bad_value();
      options.faults.foreign_rid = (*bytes)[0];
    } else {
      return "unknown option: " + std::string(option);
    }
  }
  return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (auto error = parse(argc, argv, options)) return usage_error(*error);
  if (options.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }

  // Block the stop signals before the serving thread starts, so that it
  // inherits the mask and only sigwait below receives them.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigaddset(&stop_signals, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

  auto instrument = std::make_shared<zolt_sim::Instrument>();
  const zolt_sim::IdentityField fields[3] = {zolt_sim::IdentityField::manufacturer,
                                             zolt_sim::IdentityField::device_class, zolt_sim::IdentityField::serial};
  for (std::size_t i = 0; i < 3; ++i) {
    if (options.identity[i]) instrument->set_identity(fields[i], *options.identity[i]);
  }
  instrument->set_faults(options.faults);

  try {
    zolt_sim::PtyFrontEnd front_end(instrument);
    std::printf("%s\n", front_end.device_path().c_str());
    std::fflush(stdout);
    int received = 0;
    sigwait(&stop_signals, &received);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zolt-sim: %s\n", error.what());
    return 1;
  }
  return 0;
}

// Which FTDI interfaces are stream candidates, the order they are tried in,
// the choice among modules, and the claim lock between processes. No D2XX
// runtime involved: these work on listed names and on lock files.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "support/test_process.hpp"
#include "usb/ftdi_claim.hpp"
#include "usb/ftdi_selection.hpp"

namespace zolt::timing {
namespace {

FtdiDeviceInfo kept(const std::string& description, const std::string& serial) {
  auto info = classify_ftdi_interface(description, serial);
  EXPECT_TRUE(info.has_value()) << description << " [" << serial << "]";
  return info.value_or(FtdiDeviceInfo{});
}

std::vector<std::string> labels(const std::vector<FtdiDeviceInfo>& devices) {
  std::vector<std::string> out;
  for (const auto& d : devices) out.push_back(device_label(d));
  return out;
}

TEST(FtdiInterfaceNames, KeepInterfaceAAndKnownBoardsDropInterfaceBAndOtherChips) {
  const auto digilent_a = kept("Digilent USB Device A", "210319ABCDEFA");
  EXPECT_TRUE(digilent_a.known_fifo_board);
  EXPECT_TRUE(digilent_a.interface_a);
  EXPECT_EQ(digilent_a.module_key, "210319abcdef");

  const auto minimodule = kept("FT2232H MiniModule A", "FTX1A");
  EXPECT_TRUE(minimodule.known_fifo_board);
  EXPECT_EQ(minimodule.module_key, "ftx1");

  const auto generic_a = kept("Dual RS232-HS A", "FT5Z6Q7A");
  EXPECT_FALSE(generic_a.known_fifo_board);
  EXPECT_TRUE(generic_a.interface_a);

  // A single-channel board: known by name, no channel letter, whole serial as key.
  const auto single = kept("DIGILENT Adept USB Device", "SN1234");
  EXPECT_TRUE(single.known_fifo_board);
  EXPECT_FALSE(single.interface_a);
  EXPECT_EQ(single.module_key, "sn1234");

  EXPECT_FALSE(classify_ftdi_interface("Digilent USB Device B", "210319ABCDEFB"));
  EXPECT_FALSE(classify_ftdi_interface("Dual RS232-HS b", "FT5Z6Q7B"));
  EXPECT_FALSE(classify_ftdi_interface("FT232R USB UART", "A50285BI"));
  EXPECT_FALSE(classify_ftdi_interface("Digilent USB Device A", ""));

  EXPECT_EQ(device_label(digilent_a), "Digilent USB Device A [210319ABCDEFA]");
  FtdiDeviceInfo anonymous;
  anonymous.description = "Digilent USB Device A";
  EXPECT_EQ(device_label(anonymous), "Digilent USB Device A [(unknown serial)]");
}

TEST(FtdiInterfaceNames, PreferenceOrdersBoardsThenInterfaceAThenNames) {
  std::vector<FtdiDeviceInfo> devices = {
      kept("Dual RS232-HS A", "FT00000A"),            // interface A only
      kept("digilent usb device A", "ZB2A"),          // board + A, name ties broken by serial
      kept("Digilent Adept USB Device", "SN9"),        // board only
      kept("Digilent USB Device A", "ZA1A"),          // board + A
      kept("Aardvark Dual RS232-HS A", "FT99999A"),   // interface A only, earlier name
  };
  std::sort(devices.begin(), devices.end(), preferred_before);
  EXPECT_EQ(labels(devices), (std::vector<std::string>{
                                 "Digilent USB Device A [ZA1A]",
                                 "digilent usb device A [ZB2A]",
                                 "Digilent Adept USB Device [SN9]",
                                 "Aardvark Dual RS232-HS A [FT99999A]",
                                 "Dual RS232-HS A [FT00000A]",
                             }));
  EXPECT_FALSE(preferred_before(devices[0], devices[0]));
  EXPECT_TRUE(preferred_before(devices[0], devices[1]));
  EXPECT_FALSE(preferred_before(devices[1], devices[0]));
}

TEST(FtdiSelection, ChoosesAmongModulesOnlyWithASerialNumber) {
  const auto board1 = kept("Digilent USB Device A", "ZT1A");
  const auto board2 = kept("FT2232H MiniModule A", "ZT2A");
  std::vector<FtdiDeviceInfo> chosen;
  std::string error;

  EXPECT_FALSE(select_stream_candidates({}, {}, chosen, error));
  EXPECT_EQ(error, "No FTDI HS USB stream device available");

  EXPECT_FALSE(select_stream_candidates({board1, board2}, {}, chosen, error));
  EXPECT_EQ(error,
            "Multiple FTDI HS USB stream modules are available; set ZOLT_TIMING_USB_SERIAL. Candidates: "
            "Digilent USB Device A [ZT1A], FT2232H MiniModule A [ZT2A]");
  EXPECT_TRUE(chosen.empty());

  ASSERT_TRUE(select_stream_candidates({board1, board2}, {"zt2a", ""}, chosen, error)) << error;
  EXPECT_EQ(labels(chosen), std::vector<std::string>{"FT2232H MiniModule A [ZT2A]"});

  // A description alone narrows the list down to one module: no serial needed.
  ASSERT_TRUE(select_stream_candidates({board1, board2}, {"", "minimodule"}, chosen, error)) << error;
  EXPECT_EQ(labels(chosen), std::vector<std::string>{"FT2232H MiniModule A [ZT2A]"});

  EXPECT_FALSE(select_stream_candidates({board1, board2}, {"ZT3A", ""}, chosen, error));
  EXPECT_EQ(error, "Requested ZOLT_TIMING_USB_SERIAL was not found");
  EXPECT_FALSE(select_stream_candidates({board1, board2}, {"ZT1A", "minimodule"}, chosen, error));
  EXPECT_EQ(error, "Requested ZOLT_TIMING_USB_DESCRIPTION was not found");
  EXPECT_FALSE(select_stream_candidates({board1, board2}, {"", "nexys"}, chosen, error));
  EXPECT_EQ(error, "Requested ZOLT_TIMING_USB_DESCRIPTION was not found");

  // Two interfaces of one module are not a choice between modules; the
  // better one is tried first.
  auto plain = kept("Dual RS232-HS A", "ZT1A");
  plain.module_key = board1.module_key;
  ASSERT_TRUE(select_stream_candidates({plain, board1}, {}, chosen, error)) << error;
  EXPECT_EQ(labels(chosen), (std::vector<std::string>{"Digilent USB Device A [ZT1A]", "Dual RS232-HS A [ZT1A]"}));
}

TEST(FtdiSelection, ArgumentsWinOverTheEnvironment) {
  ::setenv("ZOLT_TIMING_USB_SERIAL", "ENVSERIAL", 1);
  ::setenv("ZOLT_TIMING_USB_DESCRIPTION", "env board", 1);
  const FtdiRequest from_env = ftdi_request_from("", "");
  const FtdiRequest from_args = ftdi_request_from("ARG", "arg board");
  ::unsetenv("ZOLT_TIMING_USB_SERIAL");
  ::unsetenv("ZOLT_TIMING_USB_DESCRIPTION");
  const FtdiRequest nothing = ftdi_request_from("", "");
  EXPECT_EQ(from_env.serial_number, "ENVSERIAL");
  EXPECT_EQ(from_env.description, "env board");
  EXPECT_EQ(from_args.serial_number, "ARG");
  EXPECT_EQ(from_args.description, "arg board");
  EXPECT_TRUE(nothing.serial_number.empty());
  EXPECT_TRUE(nothing.description.empty());
}

TEST(FtdiClaim, LockFileLivesUnderTmpdirOrTmp) {
  testing::PrivateTmpdir restore;
  ::setenv("TMPDIR", "", 1);
  EXPECT_EQ(ftdi_claim_directory(), "/tmp/ZOLT_Timing");
  ::unsetenv("TMPDIR");
  EXPECT_EQ(ftdi_claim_directory(), "/tmp/ZOLT_Timing");
  ::setenv("TMPDIR", "/var/tmp/x", 1);
  EXPECT_EQ(ftdi_claim_directory(), "/var/tmp/x/ZOLT_Timing");
  EXPECT_EQ(ftdi_claim_file_name("ZT1A"), "ftdi_ZT1A.lock");

  ::setenv("TMPDIR", "/proc/no_such_dir", 1);
  std::string error;
  EXPECT_EQ(try_claim_ftdi_device(kept("Digilent USB Device A", "ZT1A"), error), nullptr);
  EXPECT_EQ(error.rfind("could not create FTDI device claim file for /proc/no_such_dir/ZOLT_Timing/ftdi_ZT1A.lock "
                        "(errno ",
                        0),
            0u)
      << error;
}

TEST(FtdiClaim, AnotherProcessCannotClaimWhileTheFirstHoldsIt) {
  testing::PrivateTmpdir tmpdir;
  const auto board = kept("Digilent USB Device A", "ZT1A");
  std::string error;
  FtdiClaim claim = try_claim_ftdi_device(board, error);
  ASSERT_NE(claim, nullptr) << error;
  EXPECT_TRUE(std::filesystem::exists(tmpdir.path() + "/ZOLT_Timing/ftdi_ZT1A.lock"));
  EXPECT_FALSE(ftdi_device_claimed(kept("Digilent USB Device A", "ZT2A")));

  const auto second_claim = [&] {
    std::string child_error;
    FtdiClaim child_claim = try_claim_ftdi_device(board, child_error);
    return child_claim ? std::string("claimed") : child_error;
  };
  EXPECT_EQ(testing::in_child_process(second_claim),
            "FTDI device Digilent USB Device A [ZT1A] is already in use by another ZOLT Timing process");
  EXPECT_EQ(testing::in_child_process([&] { return std::string(ftdi_device_claimed(board) ? "held" : "free"); }),
            "held");

  claim->unlock();
  EXPECT_EQ(testing::in_child_process(second_claim), "claimed");
  EXPECT_FALSE(ftdi_device_claimed(board));
}

}  // namespace
}  // namespace zolt::timing

// Loaded with a runtime that lacks FT_SetBitMode or FT_CyclePort (CTest runs
// this program twice, once against each build through LD_LIBRARY_PATH, and
// tells it which through ZOLT_TEST_TRIMMED).

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "support/emulated_ftdi.hpp"
#include "usb/d2xx_api.hpp"
#include "usb/ftdi_device_info.hpp"
#include "usb/ftdi_stream_reader.hpp"

namespace zolt::timing {
namespace {

std::string trimmed() {
  const char* value = std::getenv("ZOLT_TEST_TRIMMED");
  return value ? value : "";
}

TEST(D2xxTrimmedRuntime, WithoutSetBitModeNothingUsbWorks) {
  if (trimmed() != "FT_SetBitMode") GTEST_SKIP() << "runs against the build without FT_SetBitMode";
  testing::CleanSlate clean;
  testing::EmulatedModule board("ZT000001", "Digilent USB Device");
  const D2xxApi& api = d2xx();
  EXPECT_NE(api.library, nullptr);
  EXPECT_EQ(api.error, "FTDI D2XX runtime is missing required symbol FT_SetBitMode");
  EXPECT_EQ(api.set_bit_mode, nullptr);
  EXPECT_EQ(api.cycle_port, nullptr);
  EXPECT_EQ(api.ee_read_ex, nullptr);
  EXPECT_EQ(api.ee_program_ex, nullptr);

  std::string error;
  EXPECT_TRUE(list_stream_candidates(error).empty());
  EXPECT_EQ(error, api.error);
  FtdiStreamReader reader;
  EXPECT_FALSE(reader.open(FtdiStreamReader::Mode::async_bridge));
  EXPECT_EQ(reader.last_error(), api.error);
}

TEST(D2xxTrimmedRuntime, WithoutCyclePortEverythingElseWorks) {
  if (trimmed() != "FT_CyclePort") GTEST_SKIP() << "runs against the build without FT_CyclePort";
  testing::CleanSlate clean;
  testing::PrivateTmpdir tmpdir;
  testing::EmulatedModule board("ZT000001", "Digilent USB Device");
  const D2xxApi& api = d2xx();
  ASSERT_TRUE(api.usable()) << api.error;
  EXPECT_EQ(api.cycle_port, nullptr);
  EXPECT_NE(api.ee_read_ex, nullptr);

  FtdiStreamReader reader;
  ASSERT_TRUE(reader.open(FtdiStreamReader::Mode::async_bridge)) << reader.last_error();
  const std::uint8_t identity[9] = {0x41};
  ASSERT_TRUE(reader.write_all(identity, sizeof identity)) << reader.last_error();
  std::uint8_t reply[9] = {};
  ASSERT_TRUE(reader.read_exact(reply, sizeof reply, 500)) << reader.last_error();
  EXPECT_EQ(reply[0], 0xC1);
}

}  // namespace
}  // namespace zolt::timing

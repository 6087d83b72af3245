// Loading and binding the D2XX runtime. This process finds the emulated
// runtime by its bare name (LD_LIBRARY_PATH); the trimmed builds are bound by
// path through the loader's own entry point.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/emulated_ftdi.hpp"
#include "usb/d2xx_api.hpp"
#include "usb/dynamic_library.hpp"
#include "usb/ft_status.hpp"
#include "usb/ftdi_device_info.hpp"
#include "usb/ftdi_stream_reader.hpp"

namespace zolt::timing {
namespace {

TEST(D2xxLoader, ConcurrentFirstCallsShareOneCompleteTable) {
  std::vector<const D2xxApi*> seen(8, nullptr);
  std::vector<std::thread> threads;
  for (auto& slot : seen) threads.emplace_back([&slot] { slot = &d2xx(); });
  for (auto& thread : threads) thread.join();
  for (const D2xxApi* api : seen) EXPECT_EQ(api, seen[0]);

  const D2xxApi& api = *seen[0];
  ASSERT_TRUE(api.usable()) << api.error;
  EXPECT_NE(api.library, nullptr);
  const void* functions[] = {
      reinterpret_cast<const void*>(api.create_device_info_list), reinterpret_cast<const void*>(api.get_device_info_detail),
      reinterpret_cast<const void*>(api.open_ex),                 reinterpret_cast<const void*>(api.close),
      reinterpret_cast<const void*>(api.read),                    reinterpret_cast<const void*>(api.write),
      reinterpret_cast<const void*>(api.reset_device),            reinterpret_cast<const void*>(api.purge),
      reinterpret_cast<const void*>(api.set_timeouts),            reinterpret_cast<const void*>(api.set_latency_timer),
      reinterpret_cast<const void*>(api.set_usb_parameters),      reinterpret_cast<const void*>(api.get_queue_status),
      reinterpret_cast<const void*>(api.set_bit_mode),            reinterpret_cast<const void*>(api.cycle_port),
      reinterpret_cast<const void*>(api.ee_read_ex),              reinterpret_cast<const void*>(api.ee_program_ex),
  };
  for (const void* function : functions) EXPECT_NE(function, nullptr);
  EXPECT_EQ(&d2xx(), &api);
}

TEST(D2xxLoader, LooksNextToTheCodeAndTheProgramThenInSystemPlaces) {
  // The tests link the library statically: its code and the program share
  // one file, in the directory of this test program.
  const std::string here = detail::process_directory();
  ASSERT_FALSE(here.empty());
  EXPECT_EQ(detail::module_directory(), here);
  EXPECT_EQ(detail::d2xx_candidates(), (std::vector<std::string>{
                                           here + "/libftd2xx.so",
                                           here + "/libftd2xx.so",
                                           "libftd2xx.so",
                                           "/usr/local/lib/libftd2xx.so",
                                           "/usr/lib/x86_64-linux-gnu/libftd2xx.so",
                                           "/usr/lib/libftd2xx.so",
                                       }));
  EXPECT_EQ(detail::directory_part("/opt/zolt/lib/libzolt_timing.so.0"), "/opt/zolt/lib");
  EXPECT_EQ(detail::directory_part("C:\\zolt\\zolt_timing.dll"), "C:\\zolt");
  EXPECT_EQ(detail::directory_part("libzolt_timing.so"), "");
}

TEST(D2xxLoader, ReportsWhatIsMissingAndTakesTheFirstLoadableCandidate) {
  // Load the process-wide table first: afterwards the bare name would match
  // whichever runtime this test loads by path.
  ASSERT_TRUE(d2xx().usable()) << d2xx().error;

  const D2xxApi without_bit_mode = detail::load_d2xx({ZOLT_TEST_D2XX_NO_SET_BIT_MODE});
  EXPECT_NE(without_bit_mode.library, nullptr);
  EXPECT_EQ(without_bit_mode.error, "FTDI D2XX runtime is missing required symbol FT_SetBitMode");
  EXPECT_FALSE(without_bit_mode.usable());
  EXPECT_NE(without_bit_mode.get_queue_status, nullptr) << "functions before the missing one are bound";
  EXPECT_EQ(without_bit_mode.cycle_port, nullptr) << "optional functions are not bound after a failure";
  EXPECT_EQ(without_bit_mode.ee_read_ex, nullptr);

  const D2xxApi without_cycle_port = detail::load_d2xx({ZOLT_TEST_D2XX_NO_CYCLE_PORT});
  EXPECT_TRUE(without_cycle_port.usable()) << without_cycle_port.error;
  EXPECT_EQ(without_cycle_port.cycle_port, nullptr);
  EXPECT_NE(without_cycle_port.ee_read_ex, nullptr);
  EXPECT_NE(without_cycle_port.ee_program_ex, nullptr);

  const D2xxApi first_loadable =
      detail::load_d2xx({"/nonexistent/libftd2xx.so", ZOLT_TEST_D2XX_NO_CYCLE_PORT, ZOLT_TEST_D2XX_RUNTIME});
  EXPECT_TRUE(first_loadable.usable());
  EXPECT_EQ(first_loadable.cycle_port, nullptr);

  const D2xxApi nothing = detail::load_d2xx({"/nonexistent/libftd2xx.so", "/also/missing/libftd2xx.so"});
  EXPECT_EQ(nothing.library, nullptr);
  EXPECT_EQ(nothing.error,
            "FTDI D2XX runtime not available (could not load libftd2xx.so: /also/missing/libftd2xx.so: cannot open "
            "shared object file: No such file or directory)");
  EXPECT_EQ(detail::load_d2xx({}).error, "FTDI D2XX runtime not available (could not load libftd2xx.so)");
}

TEST(FtStatusText, NamesTheCallAndTheStatus) {
  EXPECT_EQ(ft_status_text(4, "FT_Read"), "FT_Read failed with FT_STATUS 4");
  EXPECT_EQ(ft_status_text(0xFFFFFFFFu, "FT_Write"), "FT_Write failed with FT_STATUS 4294967295");
  EXPECT_EQ(ft_status_text(2, std::string(300, 'x').c_str()).size(), 127u);

  std::string error = "unchanged";
  EXPECT_TRUE(ft_ok(0, "FT_Purge", error));
  EXPECT_EQ(error, "unchanged");
  EXPECT_FALSE(ft_ok(3, "FT_OpenEx", error));
  EXPECT_EQ(error, "FT_OpenEx failed with FT_STATUS 3");
}

// CTest starts this program with ZOLT_SIM_FTDI="ZTENV001=FT2232H MiniModule":
// the emulated runtime sets up that module with an instrument of its own,
// as it does for applications run against it without a test around them.
TEST(EmulatedRuntime, ModulesComeFromTheEnvironmentWithTheirOwnInstrument) {
  ASSERT_TRUE(d2xx().usable()) << d2xx().error;
  std::string error;
  const auto candidates = list_stream_candidates(error);
  ASSERT_EQ(candidates.size(), 1u) << error;
  EXPECT_EQ(device_label(candidates[0]), "FT2232H MiniModule A [ZTENV001A]");
  ASSERT_NE(zolt_sim::Registry::global().find("ZTENV001"), nullptr);

  testing::PrivateTmpdir tmpdir;
  FtdiStreamReader reader;
  ASSERT_TRUE(reader.open(FtdiStreamReader::Mode::async_bridge)) << reader.last_error();
  const std::uint8_t identity[9] = {0x43};
  ASSERT_TRUE(reader.write_all(identity, sizeof identity)) << reader.last_error();
  std::uint8_t reply[9] = {};
  ASSERT_TRUE(reader.read_exact(reply, sizeof reply, 500)) << reader.last_error();
  EXPECT_EQ(reply[0], 0xC3);
}

}  // namespace
}  // namespace zolt::timing

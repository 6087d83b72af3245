// A process that finds no D2XX runtime anywhere: every USB operation fails
// with the load error, serial features do not care, and the load is not
// retried. This program runs from a directory of its own so that a runtime
// can be placed next to it.

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "link/device_impl.hpp"
#include "usb/d2xx_api.hpp"
#include "usb/dynamic_library.hpp"
#include "usb/ftdi_device_info.hpp"
#include "usb/ftdi_stream_reader.hpp"

namespace zolt::timing {
namespace {

bool system_runtime_installed() {
  for (const char* path :
       {"/usr/local/lib/libftd2xx.so", "/usr/lib/x86_64-linux-gnu/libftd2xx.so", "/usr/lib/libftd2xx.so"}) {
    if (std::filesystem::exists(path)) return true;
  }
  return false;
}

// A runtime placed next to the program for the lifetime of this object.
class RuntimeNextToProgram {
 public:
  RuntimeNextToProgram() : path_(detail::process_directory() + "/libftd2xx.so") {
    std::filesystem::remove(path_);
    std::filesystem::create_symlink(ZOLT_TEST_D2XX_RUNTIME, path_);
  }
  ~RuntimeNextToProgram() {
    std::error_code ignored;
    std::filesystem::remove(path_, ignored);
  }
  RuntimeNextToProgram(const RuntimeNextToProgram&) = delete;
  RuntimeNextToProgram& operator=(const RuntimeNextToProgram&) = delete;

 private:
  std::string path_;
};

TEST(D2xxWithoutRuntime, EveryUsbOperationFailsWithTheLoadError) {
  if (system_runtime_installed()) GTEST_SKIP() << "an FTDI runtime is installed on this machine";
  const D2xxApi& api = d2xx();
  EXPECT_EQ(api.library, nullptr);
  EXPECT_EQ(api.error,
            "FTDI D2XX runtime not available (could not load libftd2xx.so: /usr/lib/libftd2xx.so: cannot open shared "
            "object file: No such file or directory)");

  std::string error;
  EXPECT_TRUE(list_stream_candidates(error).empty());
  EXPECT_EQ(error, api.error);

  FtdiStreamReader reader;
  EXPECT_FALSE(reader.open(FtdiStreamReader::Mode::sync_fifo));
  EXPECT_EQ(reader.last_error(), api.error);
  std::uint8_t byte = 0;
  EXPECT_FALSE(reader.write_all(&byte, 1));
  EXPECT_EQ(reader.last_error(), api.error);
  reader.purge();
  reader.close();

  DeviceImpl device;
  EXPECT_FALSE(device.open_usb_command_bridge("", ""));
  EXPECT_EQ(device.last_error(), "FTDI async command bridge: " + api.error);
  EXPECT_FALSE(device.usb_command_bridge_active());
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 50), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");
}

TEST(D2xxWithoutRuntime, TheLoadIsNotRetriedWithinTheProcess) {
  const D2xxApi* first = &d2xx();
  const std::string first_error = first->error;
  ASSERT_FALSE(first->usable());

  RuntimeNextToProgram runtime;
  EXPECT_EQ(&d2xx(), first);
  EXPECT_FALSE(d2xx().usable());
  EXPECT_EQ(d2xx().error, first_error);
  // The runtime next to the program would have been found by a new load.
  const D2xxApi fresh = detail::load_d2xx(detail::d2xx_candidates());
  EXPECT_TRUE(fresh.usable()) << fresh.error;
}

}  // namespace
}  // namespace zolt::timing

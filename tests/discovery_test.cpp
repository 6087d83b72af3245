// Discovery of serial instruments in a private device tree whose links point
// at pseudo-terminals served by virtual instruments, and the open functions
// that build on it. No FTDI runtime is reachable from this program, so only
// serial ports take part here.

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "api/device_handle.hpp"
#include "link/device_impl.hpp"
#include "link/discovery.hpp"
#include "support/device_tree.hpp"
#include "support/test_process.hpp"
#include "support/virtual_port.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

using testing::DeviceTree;
using testing::open_descriptor_count;
using testing::VirtualPort;
using Field = zolt_sim::IdentityField;
using Strings = std::vector<std::string>;

std::string device_port(tt_device* device) {
  tt_device_info info{};
  EXPECT_EQ(tt_get_device_info(device, &info), TT_OK) << tt_last_error(device);
  return info.port;
}

TEST(SerialPortListing, ByIdNamesReplaceTheirTargetsAndTheListIsSorted) {
  DeviceTree tree;
  tree.file("ttyUSB0");
  tree.file("ttyUSB1");
  tree.file("ttyACM0");
  tree.file("ttyS0");  // not a USB serial adapter: never probed
  tree.link("serial/by-id/usb-Z_B-if00", "../../ttyUSB0");
  tree.link("serial/by-id/usb-Z_A-if00", tree.root() + "/ttyACM0");
  tree.link("serial/by-id/usb-Z_gone-if00", tree.root() + "/ttyUSB9");
  const std::string r = tree.root();
  EXPECT_EQ(list_serial_ports(), (Strings{r + "/serial/by-id/usb-Z_A-if00", r + "/serial/by-id/usb-Z_B-if00",
                                          r + "/serial/by-id/usb-Z_gone-if00", r + "/ttyUSB1"}));

  DeviceTree empty;
  EXPECT_TRUE(list_serial_ports().empty());
  EXPECT_TRUE(list_serial_ports(empty.root() + "/missing").empty());
}

TEST(Discovery, NothingAttachedGivesAnEmptyHandleAndNotFound) {
  DeviceTree tree;
  tree.file("ttyUSB0");  // a port where nothing answers
  EXPECT_EQ(tt_discover(nullptr), TT_ERR_INVALID_ARGUMENT);
  tt_discovery* discovery = reinterpret_cast<tt_discovery*>(&tree);
  ASSERT_EQ(tt_discover(&discovery), TT_OK);
  ASSERT_NE(discovery, nullptr);
  EXPECT_EQ(tt_discover_count(discovery), 0u);
  EXPECT_EQ(tt_discover_port(discovery, 0), nullptr);
  EXPECT_EQ(tt_discover_identity(discovery, 0), nullptr);
  tt_device_info info{};
  EXPECT_EQ(tt_discover_info(discovery, 0, &info), TT_ERR_INVALID_ARGUMENT);
  tt_discover_free(discovery);

  EXPECT_EQ(tt_discover_count(nullptr), 0u);
  EXPECT_EQ(tt_discover_port(nullptr, 0), nullptr);
  EXPECT_EQ(tt_discover_identity(nullptr, 0), nullptr);
  EXPECT_EQ(tt_discover_info(nullptr, 0, &info), TT_ERR_INVALID_ARGUMENT);
  tt_discover_free(nullptr);

  tt_device* device = reinterpret_cast<tt_device*>(&tree);
  EXPECT_EQ(tt_open_first(&device), TT_ERR_NOT_FOUND);
  EXPECT_EQ(device, nullptr);
  device = reinterpret_cast<tt_device*>(&tree);
  EXPECT_EQ(tt_open_serial(&device, "SIM00001"), TT_ERR_NOT_FOUND);
  EXPECT_EQ(device, nullptr);
  EXPECT_EQ(tt_open_first(nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_open_serial(nullptr, "x"), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_open_serial(&device, nullptr), TT_ERR_INVALID_ARGUMENT);
}

class DiscoveryWithInstruments : public ::testing::Test {
 protected:
  void SetUp() override {
    by_id_port.instrument->set_identity(Field::serial, "SIMA");
    plain_port.instrument->set_identity(Field::serial, "SIMB");
    silent_port.instrument->set_silent(true);
    garbled_port.instrument->set_identity(Field::manufacturer, "Z\x01LT");
    by_id = tree.link("serial/by-id/usb-ZOLT_TDC_SIMA-if00-port0", by_id_port.path());
    tree.link("ttyACM0", silent_port.path());
    tree.link("ttyACM1", garbled_port.path());
    tree.file("ttyUSB3");
    plain = tree.link("ttyUSB7", plain_port.path());
  }

  DeviceTree tree;
  VirtualPort by_id_port, plain_port, silent_port, garbled_port;
  std::string by_id, plain;
};

TEST_F(DiscoveryWithInstruments, ListsAnsweringPortsOnlyAndReleasesEveryPort) {
  const int descriptors = open_descriptor_count();
  tt_discovery* discovery = nullptr;
  ASSERT_EQ(tt_discover(&discovery), TT_OK);
  EXPECT_EQ(open_descriptor_count(), descriptors) << "every probed port is closed again";
  ASSERT_EQ(tt_discover_count(discovery), 2u);
  EXPECT_EQ(std::string(tt_discover_port(discovery, 0)), by_id);
  EXPECT_EQ(std::string(tt_discover_port(discovery, 1)), plain);
  EXPECT_STREQ(tt_discover_identity(discovery, 0)->identity, "ZOLT-TDC-SIMA");
  EXPECT_STREQ(tt_discover_identity(discovery, 1)->serial, "SIMB");
  tt_device_info info{};
  ASSERT_EQ(tt_discover_info(discovery, 1, &info), TT_OK);
  EXPECT_EQ(std::string(info.port), plain);
  EXPECT_STREQ(info.model, "ZOLT TDC");
  EXPECT_STREQ(info.serial, "SIMB");
  EXPECT_EQ(tt_discover_info(discovery, 1, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_discover_port(discovery, 2), nullptr);
  tt_discover_free(discovery);

  // Each port was asked at 3000000 baud with the identity commands; the
  // silent one only once, the garbled one all three times.
  EXPECT_EQ(silent_port.instrument->received_count(), 1u);
  EXPECT_EQ(garbled_port.instrument->received_count(), 3u);
}

TEST_F(DiscoveryWithInstruments, OpenFirstAndOpenSerialUseTheDiscoveredPorts) {
  tt_device* device = nullptr;
  ASSERT_EQ(tt_open_first(&device), TT_OK);
  EXPECT_EQ(device_port(device), by_id);
  tt_close(device);

  ASSERT_EQ(tt_open_serial(&device, "SIMB"), TT_OK);
  EXPECT_EQ(device_port(device), plain);
  tt_identity identity{};
  ASSERT_EQ(tt_identify(device, &identity), TT_OK);
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-SIMB");
  tt_close(device);

  device = nullptr;
  EXPECT_EQ(tt_open_serial(&device, "simb"), TT_ERR_NOT_FOUND) << "identity serials match exactly";
  EXPECT_EQ(device, nullptr);
}

TEST(DeviceOpen, SerialOpensSendNothingAndFailuresLeaveNothingBehind) {
  VirtualPort port;
  const int descriptors = open_descriptor_count();
  tt_device* device = reinterpret_cast<tt_device*>(&port);
  EXPECT_EQ(tt_open(&device, "/dev/ttyUSB0", 0), TT_ERR_IO);
  EXPECT_EQ(device, nullptr);
  EXPECT_EQ(tt_open(&device, port.path().c_str(), 0), TT_ERR_IO);
  EXPECT_EQ(tt_open(&device, port.path().c_str(), 12345), TT_ERR_IO);
  EXPECT_EQ(tt_open(&device, "/nonexistent/tty", 3000000), TT_ERR_IO);
  EXPECT_EQ(device, nullptr);
  EXPECT_EQ(tt_open(nullptr, "/dev/ttyUSB0", 3000000), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_open(&device, nullptr, 3000000), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(open_descriptor_count(), descriptors);

  DeviceImpl impl;
  EXPECT_EQ(impl.open("/dev/ttyUSB0", 0), TT_ERR_IO);
  EXPECT_EQ(impl.last_error(), "invalid baud");
  EXPECT_EQ(impl.open(port.path(), 12345), TT_ERR_IO);
  EXPECT_EQ(impl.last_error(), "unsupported POSIX baud rate 12345");
  ASSERT_EQ(impl.open(port.path(), 115200), TT_OK);
  EXPECT_EQ(impl.last_error(), "");
  EXPECT_EQ(impl.port_path(), port.path());
  EXPECT_EQ(impl.baud(), 115200);
  EXPECT_EQ(impl.close(), TT_OK);
  EXPECT_FALSE(impl.serial_port().is_open());

  // A device path is opened as it is, never looked up as a serial number;
  // so is a COM name, which fails here as a path would.
  ASSERT_EQ(tt_open_serial(&device, port.path().c_str()), TT_OK);
  ASSERT_NE(device, nullptr);
  EXPECT_EQ(device->impl.baud(), 3000000);
  EXPECT_EQ(device_port(device), port.path());
  tt_close(device);
  device = nullptr;
  DeviceTree empty;  // so that a lookup would find nothing: -5, not -2
  EXPECT_EQ(tt_open_serial(&device, "COM3"), TT_ERR_IO);
  EXPECT_EQ(device, nullptr);

  port.instrument->clear_received();
  ASSERT_EQ(tt_open(&device, port.path().c_str(), 3000000), TT_OK);
  EXPECT_FALSE(port.instrument->wait_for_received(1, 100)) << "a serial open sends no command";
  tt_close(device);
  tt_close(nullptr);
  EXPECT_EQ(open_descriptor_count(), descriptors);
}

}  // namespace
}  // namespace zolt::timing

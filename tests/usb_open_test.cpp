// Opening instruments over the FTDI command bridge and discovering USB
// modules, against the emulated FTDI runtime (loaded by the library itself)
// wired to virtual instruments, together with serial instruments on
// pseudo-terminals.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "api/device_handle.hpp"
#include "api/env_switch.hpp"
#include "support/device_tree.hpp"
#include "support/emulated_ftdi.hpp"
#include "support/virtual_port.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

// Unless the test run says otherwise, the switch is set to "0": that must
// not count as set.
const bool kSwitchDefaulted = (::setenv("ZOLT_FORCE_INTERNAL_ON_OPEN", "0", 0), true);

using testing::DeviceTree;
using testing::EmulatedModule;
using testing::VirtualPort;
using Field = zolt_sim::IdentityField;

std::vector<std::uint8_t> command_ids(const zolt_sim::Instrument& instrument) {
  std::vector<std::uint8_t> ids;
  for (const auto& frame : instrument.received_frames()) ids.push_back(frame.bytes[0]);
  return ids;
}

std::string open_locator(tt_device* device) { return device != nullptr ? device->locator : "(not opened)"; }

class UsbOpen : public ::testing::Test {
 protected:
  testing::CleanSlate clean;
  testing::PrivateTmpdir tmpdir;
  EmulatedModule board{"ZT000001", "Digilent USB Device"};
  tt_device* device = nullptr;

  void TearDown() override { tt_close(device); }
};

TEST_F(UsbOpen, OpenStopsEveryStreamAndForcesTheReferenceOnlyWhenSwitchedOn) {
  ASSERT_TRUE(kSwitchDefaulted);
  const bool forced = EnvSwitch::evaluate(std::getenv("ZOLT_FORCE_INTERNAL_ON_OPEN"),
                                          EnvSwitch::Rule::first_char_not_zero);
  // Baud 0 would be refused by a serial open; a USB locator ignores it.
  ASSERT_EQ(tt_open(&device, "ftdi://ZT000001A", 0), TT_OK) << tt_last_error(device);
  EXPECT_STREQ(tt_last_error(device), "");
  EXPECT_TRUE(device->impl.usb_command_bridge_active());
  EXPECT_EQ(device->impl.effective_usb_serial(), "ZT000001A");

  const std::vector<std::uint8_t> ids = command_ids(board.instrument());
  ASSERT_GE(ids.size(), 40u);
  const std::uint8_t stops[] = {0x14, 0x33, 0x57, 0x31};
  for (std::size_t i = 0; i < 40; ++i) EXPECT_EQ(ids[i], stops[i % 4]) << "frame " << i;
  const auto frames = board.instrument().received_frames();
  const auto references = std::count_if(frames.begin(), frames.end(), [](const zolt_sim::ReceivedFrame& frame) {
    const zolt_sim::Frame internal{0x75, 0, 0, 0, 0, 0, 0, 0, 1};
    return frame.bytes == internal;
  });
  EXPECT_EQ(ids.size(), forced ? 43u : 40u);
  EXPECT_EQ(references, forced ? 3 : 0) << "ZOLT_FORCE_INTERNAL_ON_OPEN=" << std::getenv("ZOLT_FORCE_INTERNAL_ON_OPEN");

  // Commands now travel over the bridge.
  tt_identity identity{};
  ASSERT_EQ(tt_identify(device, &identity), TT_OK) << tt_last_error(device);
  EXPECT_EQ(command_ids(board.instrument()).back(), 0x43);
}

TEST_F(UsbOpen, HostIdentityReplacesTheInstrumentsOwnOverUsb) {
  auto instrument = std::make_shared<zolt_sim::Instrument>();
  zolt_sim::Registry::global().add("FT12345", instrument);
  ASSERT_EQ(zolt_sim_ftdi_add_module("FT12345", "Digilent Adept USB Device", 0), 0);
  instrument->set_identity(Field::manufacturer, "\x01\x02");
  instrument->set_identity(Field::device_class, "");

  ASSERT_EQ(tt_open(&device, "FTDI://FT12345", 3000000), TT_OK) << tt_last_error(device);
  tt_identity identity{};
  ASSERT_EQ(tt_identify(device, &identity), TT_OK) << tt_last_error(device);
  EXPECT_STREQ(identity.manufacturer, "ZOLT");
  EXPECT_STREQ(identity.device_class, "TDC");
  EXPECT_STREQ(identity.serial, "FT12345");
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-FT12345");

  // Readable replies are replaced just the same.
  instrument->set_identity(Field::manufacturer, "ACME");
  instrument->set_identity(Field::device_class, "X");
  ASSERT_EQ(tt_identify(device, &identity), TT_OK);
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-FT12345");
  tt_device_info info{};
  ASSERT_EQ(tt_get_device_info(device, &info), TT_OK);
  EXPECT_STREQ(info.port, "FTDI://FT12345");
  EXPECT_STREQ(info.model, "ZOLT TDC");
  EXPECT_STREQ(info.serial, "FT12345");

  // An instrument that does not answer at all is still an error.
  instrument->set_silent(true);
  EXPECT_EQ(tt_identify(device, &identity), TT_ERR_TIMEOUT);
  EXPECT_STREQ(tt_last_error(device), "timeout");
  EXPECT_STREQ(identity.identity, "");

  zolt_sim::Registry::global().remove("FT12345");
}

TEST_F(UsbOpen, LocatorSelectorsAndFailuresHalfWay) {
  // Module serial in any case, description, or the only module.
  for (const char* locator : {"ftdi://zt000001", "usb-fifo:Digilent", "USB_FIFO://digilent usb device a", "ftdi"}) {
    ASSERT_EQ(tt_open(&device, locator, 0), TT_OK) << locator << ": " << tt_last_error(device);
    EXPECT_EQ(device->impl.effective_usb_serial(), "ZT000001A") << locator;
    tt_close(device);
    device = nullptr;
  }
  EXPECT_EQ(board.state_a().open, 0) << "tt_close closes the module";

  DeviceImpl impl;
  EXPECT_EQ(impl.open("ftdi://X", 0), TT_ERR_IO) << "baud 0 is no error on the USB path";
  EXPECT_EQ(impl.last_error(), "FTDI async control: Requested ZOLT_TIMING_USB_DESCRIPTION was not found");

  // A step that fails half-way through configuring the chip: nothing is
  // handed out, the claim is released, the module closed again.
  board.fail(ZOLT_SIM_FTDI_SET_LATENCY_TIMER, ZOLT_SIM_FT_IO_ERROR);
  device = reinterpret_cast<tt_device*>(&impl);
  EXPECT_EQ(tt_open(&device, "ftdi://ZT000001A", 0), TT_ERR_IO);
  EXPECT_EQ(device, nullptr);
  EXPECT_EQ(impl.open("ftdi://ZT000001A", 0), TT_ERR_IO);
  EXPECT_EQ(impl.last_error(), "FTDI async control: FT_SetLatencyTimer failed with FT_STATUS 4");
  EXPECT_EQ(board.state_a().open, 0);
  board.fail(ZOLT_SIM_FTDI_SET_LATENCY_TIMER, 0);

  // The claim is held while a handle is open and given back by tt_close.
  ASSERT_EQ(tt_open(&device, "ftdi://ZT000001A", 0), TT_OK) << tt_last_error(device);
  tt_device* second = nullptr;
  EXPECT_EQ(tt_open(&second, "ftdi://ZT000001A", 0), TT_ERR_IO);
  EXPECT_EQ(second, nullptr);
  tt_close(device);
  device = nullptr;
  ASSERT_EQ(tt_open(&second, "ftdi://ZT000001A", 0), TT_OK);
  tt_close(second);

  // With two modules a locator must say which one.
  EmulatedModule other{"ZT000002", "Digilent USB Device"};
  EXPECT_EQ(impl.open("ftdi", 0), TT_ERR_IO);
  EXPECT_NE(impl.last_error().find("Multiple FTDI HS USB stream modules are available"), std::string::npos)
      << impl.last_error();
  ASSERT_EQ(impl.open("ftdi://ZT000002", 0), TT_OK) << impl.last_error();
  EXPECT_EQ(impl.effective_usb_serial(), "ZT000002A");

  // A serial open on the same object drops the USB link and its identity.
  VirtualPort port;
  ASSERT_EQ(impl.open(port.path(), 3000000), TT_OK);
  EXPECT_FALSE(impl.host_identity_override());
  EXPECT_EQ(other.state_a().open, 0);
  tt_identity identity{};
  ASSERT_EQ(impl.identify(identity, 250), TT_OK) << impl.last_error();
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-SIM00001");
  impl.close();
}

class UsbAndSerial : public UsbOpen {
 protected:
  void SetUp() override {
    // Instruments send at most 8 characters: the module serial without
    // its interface letter.
    serial_twin.instrument->set_identity(Field::serial, "ZT000001");
    by_id = tree.link("serial/by-id/usb-ZOLT_TDC_twin-if00-port0", serial_twin.path());
    plain = tree.link("ttyUSB0", serial_only.path());
    serial_only.instrument->set_identity(Field::serial, "SIMB");
  }

  DeviceTree tree;
  VirtualPort serial_twin, serial_only;
  std::string by_id, plain;
};

TEST_F(UsbAndSerial, UsbModulesComeFirstAndAreNotAsked) {
  tt_discovery* discovery = nullptr;
  ASSERT_EQ(tt_discover(&discovery), TT_OK);
  ASSERT_EQ(tt_discover_count(discovery), 3u);
  EXPECT_STREQ(tt_discover_port(discovery, 0), "ftdi://ZT000001A");
  EXPECT_EQ(std::string(tt_discover_port(discovery, 1)), by_id);
  EXPECT_EQ(std::string(tt_discover_port(discovery, 2)), plain);
  const tt_identity* usb = tt_discover_identity(discovery, 0);
  EXPECT_STREQ(usb->manufacturer, "ZOLT");
  EXPECT_STREQ(usb->device_class, "TDC");
  EXPECT_STREQ(usb->serial, "ZT000001A");
  EXPECT_STREQ(usb->identity, "ZOLT-TDC-ZT000001A");
  tt_device_info info{};
  ASSERT_EQ(tt_discover_info(discovery, 0, &info), TT_OK);
  EXPECT_STREQ(info.port, "ftdi://ZT000001A");
  EXPECT_STREQ(info.model, "ZOLT TDC");
  EXPECT_EQ(board.instrument().received_count(), 0u) << "no command is sent to a USB module";
  EXPECT_EQ(board.state_a().open_count, 0u) << "nor is it opened";

  // Opened, it names itself just as discovery did.
  ASSERT_EQ(tt_open_first(&device), TT_OK);
  EXPECT_EQ(open_locator(device), "ftdi://ZT000001A");
  tt_identity identity{};
  ASSERT_EQ(tt_identify(device, &identity), TT_OK);
  EXPECT_EQ(std::memcmp(&identity, usb, sizeof identity), 0);
  tt_discover_free(discovery);
}

TEST_F(UsbAndSerial, SerialNumberMatchPrefersUsbEntriesThenTriesModuleNames) {
  // A module and a serial instrument that report the same serial ZT7.
  auto instrument = std::make_shared<zolt_sim::Instrument>();
  zolt_sim::Registry::global().add("ZT7", instrument);
  ASSERT_EQ(zolt_sim_ftdi_add_module("ZT7", "Digilent USB Device", 0), 0);
  serial_only.instrument->set_identity(Field::serial, "ZT7");
  const auto opens = [this](const char* text) {
    tt_close(device);
    device = nullptr;
    const tt_status status = tt_open_serial(&device, text);
    return status == TT_OK ? open_locator(device) : std::string(tt_status_string(status));
  };
  EXPECT_EQ(opens("ZT7"), "ftdi://ZT7");
  EXPECT_EQ(opens("ZT000001A"), "ftdi://ZT000001A");
  // An exact identity serial wins over a module's other names.
  EXPECT_EQ(opens("ZT000001"), by_id);
  for (const char* name : {"zt000001", "zt000001a", "Digilent USB Device A", "DIGILENT USB DEVICE A"}) {
    EXPECT_EQ(opens(name), "ftdi://ZT000001A") << name;
  }
  zolt_sim::Registry::global().remove("ZT7");
  tt_close(device);
  device = nullptr;
  EXPECT_EQ(tt_open_serial(&device, "Digilent"), TT_ERR_NOT_FOUND) << "the description must match whole";
  EXPECT_EQ(tt_open_serial(&device, "SIM"), TT_ERR_NOT_FOUND);
  EXPECT_EQ(device, nullptr);

  // Direct locators skip discovery, the USB one included.
  ASSERT_EQ(tt_open_serial(&device, "ftdi://ZT000001A"), TT_OK);
  EXPECT_EQ(open_locator(device), "ftdi://ZT000001A");
}

}  // namespace
}  // namespace zolt::timing

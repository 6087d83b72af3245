// Reading an instrument's identity over a pseudo-terminal: trimming, the
// printable check and its hex-dump message, the device information record,
// and the handle-level message of tt_get_device_info.

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "api/device_handle.hpp"
#include "link/device_impl.hpp"
#include "link/identity_record.hpp"
#include "link/locator.hpp"
#include "support/virtual_port.hpp"
#include "zolt_timing.h"

namespace zolt::timing {
namespace {

using Field = zolt_sim::IdentityField;
using testing::VirtualPort;

zolt_sim::Payload payload_of(std::initializer_list<std::uint8_t> bytes) {
  zolt_sim::Payload payload{};
  std::copy(bytes.begin(), bytes.end(), payload.begin());
  return payload;
}

class Identity : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(device.open(port.path(), 3000000), TT_OK) << device.last_error(); }

  tt_status identify() { return device.identify(identity, 250); }

  VirtualPort port;
  DeviceImpl device;
  tt_identity identity{};
};

TEST_F(Identity, TrimsTrailingNulsAndBlanksOnly) {
  port.instrument->set_identity_payload(Field::manufacturer, payload_of({'A', 'B', 'C', 0, 0, 0, 0, 0}));
  port.instrument->set_identity_payload(Field::device_class, payload_of({'A', ' ', 'B', ' ', ' ', ' ', ' ', ' '}));
  port.instrument->set_identity_payload(Field::serial, payload_of({' ', 'S', '1', ' ', 0, ' ', 0, 0}));
  ASSERT_EQ(identify(), TT_OK) << device.last_error();
  EXPECT_STREQ(identity.manufacturer, "ABC");
  EXPECT_STREQ(identity.device_class, "A B");
  EXPECT_STREQ(identity.serial, " S1");
  EXPECT_STREQ(identity.identity, "ABC-A B- S1");

  // Eight significant characters, the most the instrument sends.
  port.instrument->set_identity(Field::serial, "ZT123456");
  ASSERT_EQ(identify(), TT_OK);
  EXPECT_STREQ(identity.serial, "ZT123456");
  EXPECT_STREQ(identity.identity, "ABC-A B-ZT123456");
  EXPECT_FALSE(device.host_identity_override());
}

TEST_F(Identity, UnprintableOrEmptyFieldFailsWithTheThreeRepliesInHex) {
  port.instrument->set_identity_payload(Field::manufacturer, payload_of({' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '}));
  port.instrument->set_identity(Field::device_class, "TDC");
  port.instrument->set_identity(Field::serial, "SIM0001\xfe");
  std::memset(&identity, 'x', sizeof identity);
  EXPECT_EQ(identify(), TT_ERR_PROTOCOL);
  EXPECT_EQ(device.last_error(),
            "identity reply payload was not printable ASCII mfg=[20 20 20 20 20 20 20 20] "
            "class=[54 44 43 00 00 00 00 00] serial=[53 49 4D 30 30 30 31 FE]");
  const tt_identity zero{};
  EXPECT_EQ(std::memcmp(&identity, &zero, sizeof identity), 0) << "a failed identify leaves no stale text";

  port.instrument->set_identity(Field::manufacturer, "ZOLT");
  port.instrument->set_identity(Field::serial, "S1");
  for (const char* bad : {"T\x7f", "T\x1f", "\x1fT", "T\x00X"}) {
    port.instrument->set_identity_payload(Field::device_class, payload_of({static_cast<std::uint8_t>(bad[0]),
                                                                          static_cast<std::uint8_t>(bad[1]),
                                                                          static_cast<std::uint8_t>(bad[2])}));
    EXPECT_EQ(identify(), TT_ERR_PROTOCOL) << "class " << detail::payload_hex(
                                                  port.instrument->identity_payload(Field::device_class).data());
  }
  // The edges of the printable range pass.
  port.instrument->set_identity(Field::device_class, " ~");
  EXPECT_EQ(identify(), TT_OK) << device.last_error();
  EXPECT_STREQ(identity.device_class, " ~");
}

TEST_F(Identity, CommandFailuresReturnTheirStatusAtOnce) {
  port.instrument->set_silent(true);
  std::memset(&identity, 'x', sizeof identity);
  EXPECT_EQ(identify(), TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "serial read timeout");
  EXPECT_EQ(identity.manufacturer[0], '\0');
  // The first failure ends it: only 0x41 was sent.
  EXPECT_TRUE(port.instrument->wait_for_received(1, 1000));
  EXPECT_EQ(port.instrument->received_count(), 1u);
  EXPECT_EQ(port.instrument->received_frames()[0].bytes[0], 0x41);

  port.instrument->set_silent(false);
  ASSERT_EQ(identify(), TT_OK) << device.last_error();
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-SIM00001");

  device.close();
  EXPECT_EQ(identify(), TT_ERR_INVALID_STATE);
  EXPECT_EQ(device.last_error(), "port not open");
}

TEST(DeviceInfo, ModelJoinsManufacturerAndClassAndFieldsAreCut) {
  tt_identity identity{};
  detail::fill_identity(identity, "ZOLT", "TDC", "SIM00001");
  tt_device_info info = detail::device_info_from(identity, "/dev/ttyUSB0");
  EXPECT_STREQ(info.port, "/dev/ttyUSB0");
  EXPECT_STREQ(info.model, "ZOLT TDC");
  EXPECT_STREQ(info.serial, "SIM00001");

  detail::fill_identity(identity, "ZOLT", "", "S");
  info = detail::device_info_from(identity, std::string(100, 'p'));
  EXPECT_STREQ(info.model, "ZOLT") << "no trailing blank without a class";
  EXPECT_EQ(std::string(info.port), std::string(63, 'p'));

  detail::fill_identity(identity, std::string(20, 'm'), std::string(20, 'c'), std::string(20, 's'));
  EXPECT_EQ(std::string(identity.serial), std::string(15, 's'));
  EXPECT_EQ(std::string(identity.identity), std::string(15, 'm') + "-" + std::string(15, 'c') + "-" + std::string(15, 's'));
  info = detail::device_info_from(identity, "p");
  EXPECT_EQ(std::string(info.model), std::string(15, 'm') + " " + std::string(15, 'c'));

  detail::fill_host_identity(identity, "FT12345");
  EXPECT_STREQ(identity.identity, "ZOLT-TDC-FT12345");
  detail::fill_host_identity(identity, "0123456789ABCDEFGH");
  EXPECT_STREQ(identity.serial, "0123456789ABCDE");
}

TEST(Locator, UsbPrefixesIgnoreCaseAndSelectorFollowsSchemeOrColon) {
  const auto usb = [](const char* text) { return classify_locator(text).kind == Locator::Kind::usb; };
  EXPECT_TRUE(usb("ftdi://ZT1"));
  EXPECT_TRUE(usb("FTDI"));
  EXPECT_TRUE(usb("Usb-Fifo:board"));
  EXPECT_TRUE(usb("USB_FIFO"));
  EXPECT_FALSE(usb("ftd"));
  EXPECT_FALSE(usb("usb-fif"));
  EXPECT_FALSE(usb("/dev/ftdi0"));
  EXPECT_FALSE(usb("COM3"));

  EXPECT_EQ(classify_locator("ftdi://ZT000001A").usb_selector, "ZT000001A");
  EXPECT_EQ(classify_locator("usb-fifo:Digilent").usb_selector, "Digilent");
  EXPECT_EQ(classify_locator("usb_fifo://a:b").usb_selector, "a:b");
  EXPECT_EQ(classify_locator("ftdi:x://y").usb_selector, "y");
  EXPECT_EQ(classify_locator("ftdi").usb_selector, "");

  for (const char* direct : {"ftdi://X", "FTDI://X", "COM3", "\\\\.\\COM12", "/dev/ttyACM0"}) {
    EXPECT_TRUE(is_direct_locator(direct)) << direct;
  }
  for (const char* searched : {"Ftdi://X", "ftdi:X", "SIM00001", "dev/ttyUSB0", "com3", ""}) {
    EXPECT_FALSE(is_direct_locator(searched)) << searched;
  }
}

TEST(DeviceIdentityApi, DeviceInfoReportsTheOpenLocatorAndSetsTheHandleMessage) {
  VirtualPort port;
  tt_device* device = nullptr;
  ASSERT_EQ(tt_open(&device, port.path().c_str(), 3000000), TT_OK);
  tt_device_info info{};
  tt_identity identity{};
  EXPECT_EQ(tt_identify(nullptr, &identity), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_identify(device, nullptr), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(tt_get_device_info(device, nullptr), TT_ERR_INVALID_ARGUMENT);
  ASSERT_EQ(tt_get_device_info(device, &info), TT_OK);
  EXPECT_EQ(std::string(info.port), port.path());
  EXPECT_STREQ(info.model, "ZOLT TDC");
  EXPECT_STREQ(info.serial, "SIM00001");

  port.instrument->set_silent(true);
  std::memset(&info, 'x', sizeof info);
  EXPECT_EQ(tt_get_device_info(device, &info), TT_ERR_TIMEOUT);
  EXPECT_STREQ(tt_last_error(device), "could not read device information");
  EXPECT_STREQ(info.port, "") << "no stale text on failure";
  // tt_identify itself keeps the command layer's text underneath.
  EXPECT_EQ(device->impl.last_error(), "serial read timeout");

  port.instrument->set_silent(false);
  ASSERT_EQ(tt_get_device_info(device, &info), TT_OK);
  EXPECT_EQ(device->last_error, "") << "a success clears the handle-level message";
  tt_close(device);
}

}  // namespace
}  // namespace zolt::timing

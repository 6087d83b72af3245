#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "api/boundary.hpp"
#include "api/device_handle.hpp"
#include "api/env_switch.hpp"
#include "api/error.hpp"

namespace zolt::timing {
namespace {

TEST(StatusText, EveryCodeAndUnknownOnes) {
  const std::pair<tt_status, const char*> table[] = {
      {TT_OK, "ok"},
      {TT_ERR_INVALID_ARGUMENT, "invalid argument"},
      {TT_ERR_IO, "i/o error"},
      {TT_ERR_TIMEOUT, "timeout"},
      {TT_ERR_PROTOCOL, "protocol error"},
      {TT_ERR_NOT_FOUND, "not found"},
      {TT_ERR_INVALID_STATE, "invalid state"},
      {TT_ERR_UNSUPPORTED, "unsupported"},
      {-8, "unknown"},
      {1, "unknown"},
      {INT32_MIN, "unknown"},
  };
  for (const auto& [status, text] : table) EXPECT_STREQ(tt_status_string(status), text) << status;
  EXPECT_STREQ(tt_software_version(), "0.3.0");
  EXPECT_STREQ(tt_firmware_version(), "REV-001");
}

TEST(ThrowStatus, MessageWithAndWithoutDetail) {
  using Thrown = std::pair<tt_status, std::string>;
  const auto message_of = [](auto&& thrower) -> Thrown {
    try {
      thrower();
    } catch (const Error& error) {
      return {error.status(), error.what()};
    }
    return {TT_OK, "nothing thrown"};
  };
  EXPECT_EQ(message_of([] { detail::throw_status(TT_ERR_TIMEOUT, "start_tag_stream", ""); }),
            Thrown(TT_ERR_TIMEOUT, "start_tag_stream: timeout"));
  EXPECT_EQ(message_of([] { detail::throw_status(TT_ERR_TIMEOUT, "start_tag_stream", nullptr); }),
            Thrown(TT_ERR_TIMEOUT, "start_tag_stream: timeout"));
  EXPECT_EQ(message_of([] { detail::throw_status(TT_ERR_TIMEOUT, "start_tag_stream", "serial read timeout"); }),
            Thrown(TT_ERR_TIMEOUT, "start_tag_stream: timeout (serial read timeout)"));

  // check: silent on success, device text as detail on failure.
  tt_device device;
  device.impl.set_last_error("timed out waiting for RID 0xD8");
  EXPECT_NO_THROW(check(TT_OK, "read", &device));
  EXPECT_EQ(message_of([&] { check(TT_ERR_TIMEOUT, "read", &device); }),
            Thrown(TT_ERR_TIMEOUT, "read: timeout (timed out waiting for RID 0xD8)"));
  EXPECT_EQ(message_of([] { check(TT_ERR_IO, "read", nullptr); }),
            Thrown(TT_ERR_IO, "read: i/o error"));
}

TEST(Boundary, CaptureExceptionClassifiesEveryKind) {
  struct NotAnException {};
  std::string text;
  const auto run = [&text](auto&& thrower) { return detail::guarded(text, [&]() -> tt_status { thrower(); return TT_OK; }); };

  EXPECT_EQ(run([] { detail::throw_status(TT_ERR_PROTOCOL, "StreamFileReader", "bad magic"); }), TT_ERR_PROTOCOL);
  EXPECT_EQ(text, "StreamFileReader: protocol error (bad magic)");
  EXPECT_EQ(run([] { throw std::bad_alloc(); }), TT_ERR_IO);
  EXPECT_EQ(text, std::bad_alloc().what());
  EXPECT_EQ(run([] { throw std::invalid_argument("negative size"); }), TT_ERR_INVALID_ARGUMENT);
  EXPECT_EQ(text, "negative size");
  EXPECT_EQ(run([] { throw std::out_of_range("index"); }), TT_ERR_IO);
  EXPECT_EQ(text, "index");
  EXPECT_EQ(run([] { throw NotAnException{}; }), TT_ERR_IO);
  EXPECT_EQ(text, "unknown error");

  // A body that returns normally passes its status through and leaves the text alone.
  EXPECT_EQ(detail::guarded(text, [] { return TT_ERR_NOT_FOUND; }), TT_ERR_NOT_FOUND);
  EXPECT_EQ(text, "unknown error");
  EXPECT_EQ(detail::guarded([] () -> tt_status { throw std::invalid_argument("x"); }), TT_ERR_INVALID_ARGUMENT);
}

TEST(LastError, HandleLevelTextWinsUntilClearedBySuccess) {
  EXPECT_STREQ(tt_last_error(nullptr), "");
  tt_device device;
  EXPECT_STREQ(tt_last_error(&device), "");

  device.impl.set_last_error("serial read timeout");
  EXPECT_STREQ(tt_last_error(&device), "serial read timeout");

  EXPECT_EQ(detail::product_status(&device, TT_ERR_IO, "could not read device information"), TT_ERR_IO);
  EXPECT_STREQ(tt_last_error(&device), "could not read device information");

  // A failure without a message does not leave a stale handle-level text.
  EXPECT_EQ(detail::product_status(&device, TT_ERR_TIMEOUT, nullptr), TT_ERR_TIMEOUT);
  EXPECT_STREQ(tt_last_error(&device), "serial read timeout");

  detail::product_status(&device, TT_ERR_IO, "could not read device information");
  EXPECT_EQ(detail::product_status(&device, TT_OK, "ignored on success"), TT_OK);
  EXPECT_STREQ(tt_last_error(&device), "serial read timeout");

  detail::product_status(&device, TT_ERR_IO, "could not read device information");
  detail::product_status(&device);
  EXPECT_STREQ(tt_last_error(&device), "serial read timeout");

  EXPECT_EQ(detail::product_status(nullptr, TT_ERR_IO, "x"), TT_ERR_IO);

  // It runs outside the exception firewall of the exported functions: an
  // allocation failure for the message must not escape through the C API.
  static_assert(noexcept(detail::product_status(&device, TT_ERR_IO, "could not read device information")));
  static_assert(noexcept(detail::product_status(&device)));
}

TEST(EnvSwitch, FirstCharacterRuleAndSetAtAllRule) {
  using Rule = EnvSwitch::Rule;
  EXPECT_FALSE(EnvSwitch::evaluate(nullptr, Rule::first_char_not_zero));
  EXPECT_FALSE(EnvSwitch::evaluate("", Rule::first_char_not_zero));
  EXPECT_FALSE(EnvSwitch::evaluate("0", Rule::first_char_not_zero));
  EXPECT_FALSE(EnvSwitch::evaluate("0yes", Rule::first_char_not_zero));
  EXPECT_TRUE(EnvSwitch::evaluate("1", Rule::first_char_not_zero));
  EXPECT_TRUE(EnvSwitch::evaluate("no", Rule::first_char_not_zero));
  EXPECT_FALSE(EnvSwitch::evaluate(nullptr, Rule::set_at_all));
  EXPECT_TRUE(EnvSwitch::evaluate("", Rule::set_at_all));
  EXPECT_TRUE(EnvSwitch::evaluate("0", Rule::set_at_all));

  // Read once: a later change of the environment is not seen.
  ::setenv("ZOLT_TEST_SWITCH_ONCE", "1", 1);
  static EnvSwitch once_switch("ZOLT_TEST_SWITCH_ONCE");
  EXPECT_TRUE(once_switch.on());
  ::setenv("ZOLT_TEST_SWITCH_ONCE", "0", 1);
  EXPECT_TRUE(once_switch.on());
}

TEST(ErrnoText, Format) {
  EXPECT_EQ(detail::errno_text("open failed", ENOENT),
            std::string("open failed (errno ") + std::to_string(ENOENT) + ": " + std::strerror(ENOENT) + ")");
}

TEST(Boundary, AnyNull) {
  int value = 0;
  EXPECT_FALSE(detail::any_null(&value, &value));
  EXPECT_TRUE(detail::any_null(&value, static_cast<const char*>(nullptr)));
  EXPECT_FALSE(detail::any_null());
}

}  // namespace
}  // namespace zolt::timing

// The zolt-sim executable: prints its device path, answers over it with the
// identity given on the command line, applies fault switches, and stops
// cleanly when interrupted.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include "link/device_impl.hpp"

namespace zolt::timing {
namespace {

// A zolt-sim process with its standard output on a pipe.
class SimProcess {
 public:
  explicit SimProcess(std::vector<std::string> arguments) {
    int pipe_ends[2];
    if (pipe(pipe_ends) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(pipe_ends[1], STDOUT_FILENO);
      close(pipe_ends[0]);
      close(pipe_ends[1]);
      std::vector<char*> argv{const_cast<char*>(ZOLT_SIM_EXECUTABLE)};
      for (std::string& argument : arguments) argv.push_back(argument.data());
      argv.push_back(nullptr);
      execv(ZOLT_SIM_EXECUTABLE, argv.data());
      _exit(127);
    }
    close(pipe_ends[1]);
    output_ = fdopen(pipe_ends[0], "r");
  }
  ~SimProcess() {
    if (pid_ > 0) stop(SIGKILL);
    if (output_ != nullptr) fclose(output_);
  }
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;

  std::string read_line() {
    char line[512] = {};
    if (output_ == nullptr || fgets(line, sizeof line, output_) == nullptr) return {};
    std::string text = line;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  }
  std::string read_rest() {
    std::string text;
    char chunk[512];
    while (output_ != nullptr && fgets(chunk, sizeof chunk, output_) != nullptr) text += chunk;
    return text;
  }
  // Sends the signal and returns the exit status as waitpid reports it.
  int stop(int signal_number) {
    kill(pid_, signal_number);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }
  int wait_exit() {
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  FILE* output_ = nullptr;
};

TEST(ZoltSimTool, ServesTheConfiguredIdentityUntilInterrupted) {
  SimProcess sim({"--manufacturer", "ACME", "--serial", "A\\x01 B", "--garbage", "00FF"});
  const std::string path = sim.read_line();
  ASSERT_EQ(path.rfind("/dev/", 0), 0U) << "first line must be the device path, got: " << path;

  DeviceImpl device;
  ASSERT_TRUE(device.serial_port().open(path, 3000000)) << device.serial_port().last_error();
  std::array<std::uint8_t, 8> reply{};
  ASSERT_EQ(device.send_command(0x41, nullptr, 0, reply.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(reply.data()), 4), "ACME");
  ASSERT_EQ(device.send_command(0x43, nullptr, 0, reply.data(), 400), TT_OK) << device.last_error();
  EXPECT_EQ(reply, (std::array<std::uint8_t, 8>{'A', 0x01, ' ', 'B', 0, 0, 0, 0}));
  ASSERT_EQ(device.send_command(0x42, nullptr, 0, reply.data(), 400), TT_OK);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(reply.data())), "TDC");

  const int status = sim.stop(SIGINT);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(ZoltSimTool, HelpDocumentsTheOptionsAndBadOptionsAreRefused) {
  SimProcess help({"--help"});
  const std::string text = help.read_rest();
  for (const char* option : {"--manufacturer", "--device-class", "--serial", "--silent", "--drop-replies",
                             "--reply-delay-ms", "--garbage", "--corrupt-echo", "--foreign-frames", "--foreign-rid"}) {
    EXPECT_NE(text.find(option), std::string::npos) << option;
  }
  int status = help.wait_exit();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  for (std::vector<std::string> bad : {std::vector<std::string>{"--serial", "TOOLONG123"},
                                       std::vector<std::string>{"--garbage", "ABC"},
                                       std::vector<std::string>{"--drop-replies", "x"},
                                       std::vector<std::string>{"--frobnicate"}}) {
    SimProcess refused(bad);
    EXPECT_EQ(refused.read_rest(), "") << bad[0];
    status = refused.wait_exit();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << bad[0];
  }
}

TEST(ZoltSimTool, SilentInstrumentTimesOut) {
  SimProcess sim({"--silent"});
  const std::string path = sim.read_line();
  DeviceImpl device;
  ASSERT_TRUE(device.serial_port().open(path, 3000000)) << device.serial_port().last_error();
  EXPECT_EQ(device.send_command(0x41, nullptr, 0, nullptr, 100), TT_ERR_TIMEOUT);
  EXPECT_EQ(device.last_error(), "serial read timeout");
  const int status = sim.stop(SIGTERM);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace zolt::timing

#include "worker/DeviceUsers.h"

#include <csignal>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/Pty.h"

using station::usersOfDevice;

TEST(DeviceUsers, namesTheProcessThatHasIt) {
  test::Pty pty;
  const pid_t child = fork();
  if (child == 0) {
    if (dup2(open(pty.path().c_str(), O_RDWR | O_NOCTTY), STDIN_FILENO) < 0) _exit(1);
    execlp("sleep", "sleep", "60", nullptr);
    _exit(1);
  }
  std::string users;
  const std::string wanted = "sleep (process " + std::to_string(child) + ") has it";
  for (int i = 0; i < 500 && users != wanted; ++i) {
    usleep(10000);
    users = usersOfDevice(pty.path());
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  EXPECT_EQ(users, wanted);
}

TEST(DeviceUsers, saysWhenThereIsNone) {
  const test::Pty pty;
  EXPECT_THAT(usersOfDevice(pty.path()),
              testing::AnyOf("no process has it any more", testing::HasSubstr("not permitted")));
  EXPECT_EQ(usersOfDevice("/nowhere/tty"), "it is no device");
}

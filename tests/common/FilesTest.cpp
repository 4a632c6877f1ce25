#include "common/Files.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include "support/SignalStorm.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace quillon::internal;

bool isOpen(int descriptor) { return fcntl(descriptor, F_GETFD) >= 0; }

TEST(Files, ADescriptorIsClosedWithItsOwner) {
  std::array<int, 2> ends{};
  {
    Pipe pipe = Pipe::make();
    ends = {pipe.reading.get(), pipe.writing.get()};
    Descriptor taken = std::move(pipe.reading);
    EXPECT_FALSE(pipe.reading);
    EXPECT_EQ(taken.get(), ends[0]);
    EXPECT_TRUE(isOpen(ends[0]));
    EXPECT_EQ(fcntl(ends[1], F_GETFD), FD_CLOEXEC);
  }
  EXPECT_FALSE(isOpen(ends[0]));
  EXPECT_FALSE(isOpen(ends[1]));
}

TEST(Files, ADescriptorClosesWhatItHeldAndKeepsErrno) {
  Pipe pipe = Pipe::make();
  const int earlier = pipe.reading.get();
  errno = ENOSPC;
  pipe.reading = std::move(pipe.writing);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_FALSE(isOpen(earlier));
  Descriptor given(pipe.reading.release());
  EXPECT_FALSE(pipe.reading);
  EXPECT_TRUE(isOpen(given.get()));
}

TEST(Files, WhatIsWrittenIsReadWholeAlsoWhileSignalsInterrupt) {
  const std::string bytes(3'000'000, 'x');
  Pipe pipe = Pipe::make();
  std::string received;
  {
    const test::SignalStorm storm;
    std::jthread writer(
        [&, writing = std::move(pipe.writing)] { EXPECT_TRUE(writeWhole(writing.get(), bytes)); });
    EXPECT_TRUE(readWhole(pipe.reading.get(), received));
  }
  EXPECT_EQ(received.size(), bytes.size());
  EXPECT_TRUE(received == bytes);
}

TEST(Files, TellsWhyAWriteFails) {
  const Descriptor full = openFile("/dev/full", O_WRONLY);
  ASSERT_TRUE(full);
  EXPECT_FALSE(writeWhole(full.get(), "x"));
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_TRUE(writeWhole(full.get(), ""));
}

TEST(Files, ReadsAFileAndTellsWhyItCannot) {
  const test::TemporaryFolder folder;
  const std::string path = (folder.path() / "file").string();
  {
    const Descriptor file = openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0600);
    ASSERT_TRUE(file);
    EXPECT_EQ(fcntl(file.get(), F_GETFD), FD_CLOEXEC);
    EXPECT_TRUE(writeWhole(file.get(), std::string("a\0b", 3)));
  }
  EXPECT_EQ(readWhole(path), std::string("a\0b", 3));
  EXPECT_FALSE(openFile(path, O_WRONLY | O_CREAT | O_EXCL, 0600));
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(readWhole(path + "s"), std::nullopt);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(readWhole(folder.path().string()), std::nullopt);
  EXPECT_EQ(errno, EISDIR);
}

}  // namespace

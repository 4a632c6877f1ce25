#pragma once

// What the SCPI driver must come to over a line that carries messages, whichever it is. The
// instrument keeps to the exchange of messages of IEEE 488.2: who reads without a question gets
// nothing and the error -420, and an answer that was not read when the next message comes is
// dropped, with -410.
//
// It knows, beside "*IDN?", "*CLS", "*OPC?" and "SYST:ERR?":
//   NUM?    "+1.5"             PAIR?   "1, +2.5E0"       BLOC?   a block of all bytes, a line feed
//   NLBL?   "#15abcd\n"        BARE?   "7", without a line feed
//   VOLT    -222 for its parameter 99
//   SLOW?   "99", which is there once the first read has timed out
//   MUTE?   no answer          WRONG?  no answer, and -113

#include <gmock/gmock.h>

#include <memory>
#include <string>

#include <QLTBenchScpi.h>
#include <QLTErrorCodes.h>

#include "support/Errors.h"

namespace test {

inline std::string textOf(const QLTError& error) { return error.description().value_or(""); }

inline void expectQueriesAndBlocks(QLTBenchScpi& scpi) {
  QLTError error = earlierError();
  EXPECT_EQ(scpi.number("NUM?", &error), 1.5);
  EXPECT_EQ(scpi.number("BARE?", &error), 7.0);
  EXPECT_EQ(scpi.numbers("PAIR?", &error), (std::vector<double>{1, 2.5}));
  for (int i = 0; i < 2; ++i) {
    const auto block = scpi.block("BLOC?", &error);
    ASSERT_TRUE(block) << textOf(error);
    ASSERT_EQ(block->size(), 256U);
    for (std::size_t at = 0; at < block->size(); ++at) EXPECT_EQ((*block)[at], at);
    // Its last byte ends no line, and nothing comes behind it.
    EXPECT_EQ(scpi.block("NLBL?", &error), (QLTData{'a', 'b', 'c', 'd', '\n'})) << textOf(error);
  }
  EXPECT_TRUE(scpi.send("VOLT 5", &error)) << textOf(error);
  EXPECT_TRUE(scpi.waitTillDone(5, &error)) << textOf(error);
  EXPECT_THAT(scpi.errors(&error), testing::Optional(testing::IsEmpty()));
  EXPECT_EQ(scpi.number("NUM?", &error), 1.5);
  EXPECT_THAT(error, isUntouched());
}

inline void expectErrorsOfTheQueue(QLTBenchScpi& scpi) {
  QLTError error;
  EXPECT_FALSE(scpi.send("VOLT 99", &error));
  EXPECT_EQ(error.code(), -222);
  scpi.setTimeOutInSeconds(0.05);
  EXPECT_EQ(scpi.number("WRONG?", &error), std::nullopt);
  EXPECT_EQ(error.domain(), kQLTScipErrorDomain);
  EXPECT_EQ(error.code(), -113);
  EXPECT_THAT(textOf(error), testing::HasSubstr("no answer to \"WRONG?\""));
  EXPECT_THAT(textOf(error), testing::Not(testing::HasSubstr("-420")));
  EXPECT_EQ(error.underlyingError().code(), kQLTErrorLineTimedOut);
  scpi.setTimeOutInSeconds(5);
  EXPECT_TRUE(scpi.send("VOLT 5", &error)) << textOf(error);
}

/// Silence and a late answer are silence, whatever the instrument has against the way they were
/// dealt with; each later answer is that of its query, and the queue holds nothing of it.
inline void expectToBeInStepAfter(QLTBenchScpi& scpi, const std::string& query) {
  SCOPED_TRACE(query);
  QLTError error;
  scpi.setTimeOutInSeconds(0.05);
  EXPECT_EQ(scpi.number(query, &error), std::nullopt);
  EXPECT_EQ(error.domain(), QLTFrameworkErrorDomain);
  EXPECT_EQ(error.code(), kQLTErrorLineTimedOut) << textOf(error);
  scpi.setTimeOutInSeconds(5);
  EXPECT_EQ(scpi.number("NUM?", &error), 1.5) << textOf(error);
  EXPECT_EQ(scpi.number("BARE?", &error), 7.0) << textOf(error);
  EXPECT_TRUE(scpi.send("VOLT 5", &error)) << textOf(error);
  EXPECT_EQ(scpi.block("BLOC?", &error).value_or(QLTData()).size(), 256U) << textOf(error);
  EXPECT_EQ(scpi.block(query, &error, 0.05), std::nullopt);
  EXPECT_TRUE(scpi.send("VOLT 5", &error)) << textOf(error);
  EXPECT_TRUE(scpi.waitTillDone(5, &error)) << textOf(error);
  EXPECT_EQ(scpi.number("NUM?", &error), 1.5) << textOf(error);
}

}  // namespace test

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "common/Files.h"
#include "web/Server.h"

namespace test {

const std::vector<web::File>& embeddedFiles();

}  // namespace test

namespace {

using testing::ElementsAre;
using testing::Key;
using testing::Pair;

TEST(EmbeddedFiles, HaveTheirPathsAndTypes) {
  std::map<std::string, std::string> types;
  for (const web::File& file : test::embeddedFiles()) types.emplace(file.path, file.type);
  EXPECT_THAT(types, ElementsAre(Pair("/icon.svg", "image/svg+xml"),
                                 Pair("/index.html", "text/html; charset=utf-8"),
                                 Pair("/modules/empty.txt", "text/plain; charset=utf-8"),
                                 Pair("/page.js", "text/javascript; charset=utf-8")));
}

TEST(EmbeddedFiles, AreThereByteForByte) {
  for (const web::File& file : test::embeddedFiles()) {
    EXPECT_EQ(file.content, quillon::internal::readWhole(WEB_TEST_FILES + std::string(file.path)))
        << file.path;
  }
}

}  // namespace

#include "web/MergePatch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

using web::mergePatch;
using Json = nlohmann::json;

Json parsed(const char* text) { return Json::parse(text); }

/// The RFC's own way of applying a patch, which this library did not write.
Json applied(Json target, const Json& patch) {
  target.merge_patch(patch);
  return target;
}

TEST(MergePatch, HoldsWhatChangedAndNothingElse) {
  const Json from = parsed(R"({"kept": [1, 2], "gone": 1, "changed": "a",
                               "inner": {"kept": 1, "gone": {"x": 1}, "changed": [1]}})");
  const Json to = parsed(R"({"kept": [1, 2], "new": {"y": []}, "changed": "b",
                             "inner": {"kept": 1, "changed": [1, 2]}})");
  const Json patch = mergePatch(from, to);
  EXPECT_EQ(patch, parsed(R"({"gone": null, "changed": "b", "new": {"y": []},
                              "inner": {"gone": null, "changed": [1, 2]}})"));
  EXPECT_EQ(applied(from, patch), to);
}

TEST(MergePatch, OfEqualsIsEmpty) {
  const Json state = parsed(R"({"a": {"b": [{"c": 1.5}]}, "d": "e"})");
  EXPECT_EQ(mergePatch(state, state), Json::object());
}

TEST(MergePatch, MakesAnObjectOutOfAnotherValueAndBack) {
  const Json number = parsed(R"({"a": 1})");
  const Json object = parsed(R"({"a": {"b": {}}})");
  EXPECT_EQ(applied(number, mergePatch(number, object)), object);
  EXPECT_EQ(applied(object, mergePatch(object, number)), number);
}

TEST(MergePatch, TakesANullForAbsent) {
  EXPECT_EQ(mergePatch(parsed(R"({"a": null})"), parsed(R"({"a": null})")), Json::object());
  EXPECT_EQ(mergePatch(parsed(R"({"a": 1})"), parsed(R"({"a": null})")), parsed(R"({"a": null})"));
  EXPECT_EQ(mergePatch(parsed("{}"), parsed(R"({"a": {"b": null, "c": [null]}})")),
            parsed(R"({"a": {"c": [null]}})"));
}

Json randomValue(std::mt19937& random, int depth) {
  switch (random() % (depth > 0 ? 6 : 4)) {
    case 0:
      return random() % 3;
    case 1:
      return std::string(random() % 3, 'x');
    case 2:
      return random() % 2 == 0;
    case 3:
      return Json::array({random() % 2, Json::object({{"null", nullptr}})});
    default: {
      Json object = Json::object();
      for (const char* name : {"a", "b", "c", "d"}) {
        if (random() % 2 == 0) object[name] = randomValue(random, depth - 1);
      }
      return object;
    }
  }
}

Json randomState(std::mt19937& random) {
  Json state = Json::object();
  for (const char* name : {"a", "b", "c"}) state[name] = randomValue(random, 4);
  return state;
}

TEST(MergePatch, AppliedToTheFirstGivesTheSecond) {
  std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same values each time
  for (int i = 0; i < 2000; ++i) {
    const Json from = randomState(random);
    const Json to = randomState(random);
    ASSERT_EQ(applied(from, mergePatch(from, to)), to) << from << "\n" << to;
  }
}

}  // namespace

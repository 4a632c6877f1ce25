// Random data, computed here and by oracle.py.

#ifdef PYTHON

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "PublishedStudies.h"
#include "statistics/Capability.h"
#include "statistics/Comparison.h"
#include "statistics/GaugeStudy.h"
#include "statistics/Proportion.h"
#include "support/TemporaryFolder.h"

namespace {

using Numbers = std::vector<double>;
using statistics::SortedValues;

/// A question to the oracle, with this library's answer.
struct Question {
  std::string text;
  Numbers answer;
};

std::string hexadecimal(const Numbers& numbers) {
  std::string text;
  for (const double number : numbers) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, " %a", number);
    text += buffer;
  }
  return text;
}

/// Data as stations have them: more or less normal, of few or many digits, near 0 or far from it.
class Data {
 public:
  Numbers values(std::size_t count) {
    const double centre = std::vector{0.0, 5.0, -300.0, 1e6, 1e12}[below(5)];
    const double spread = std::vector{1.0, 0.01, 40.0}[below(3)] * (centre > 1e9 ? 1000 : 1);
    const double step = below(2) == 0 ? spread / 4 : 0;
    Numbers values;
    for (std::size_t i = 0; i < count; ++i) {
      double value = spread * normal_(random_);
      if (step > 0) value = step * std::round(value / step);
      values.push_back(centre + value);
    }
    // Not all the same, whatever the rounding.
    values.front() += spread;
    return values;
  }

  std::size_t below(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random_);
  }

 private:
  std::mt19937_64 random_{20};
  std::normal_distribution<double> normal_;
};

Question proportion(Data& data) {
  const auto total = static_cast<std::int64_t>(1 + data.below(5000));
  const auto hits = static_cast<std::int64_t>(data.below(static_cast<std::size_t>(total) + 1));
  const auto interval = *statistics::proportion(hits, total).interval;
  return {"proportion" + hexadecimal({static_cast<double>(hits), static_cast<double>(total)}),
          {interval.lower, interval.upper}};
}

Question percentile(Data& data) {
  const Numbers values = data.values(1 + data.below(60));
  const double percent = static_cast<double>(data.below(401)) / 4;
  return {"percentile" + hexadecimal({percent}) + hexadecimal(values),
          {*statistics::percentile(SortedValues(values), percent)}};
}

Question summary(Data& data) {
  const Numbers values = data.values(2 + data.below(60));
  const statistics::Summary summary = statistics::summarize(SortedValues(values));
  const statistics::Spread within = *statistics::movingRangeSpread(values);
  return {"summary" + hexadecimal(values),
          {*summary.mean, *summary.standardDeviation, *summary.median, within.deviation,
           within.degreesOfFreedom}};
}

Question pooled(Data& data) {
  const std::size_t groups = 1 + data.below(6);
  const std::size_t size = 2 + data.below(5);
  const Numbers values = data.values(groups * size);
  std::vector<std::int64_t> subgroups;
  for (std::size_t i = 0; i < values.size(); ++i) {
    subgroups.push_back(static_cast<std::int64_t>(i / size));
  }
  return {"pooled" + hexadecimal({static_cast<double>(groups), static_cast<double>(size)}) +
              hexadecimal(values),
          {statistics::pooledSpread(values, subgroups)->deviation}};
}

Question normality(Data& data) {
  const Numbers values = data.values(8 + data.below(60));
  const SortedValues sorted(values);
  const auto normality = *statistics::andersonDarling(sorted, statistics::summarize(sorted));
  return {"normality" + hexadecimal(values),
          {normality.statistic, normality.adjusted, normality.p}};
}

Question capability(Data& data) {
  const Numbers values = data.values(8 + data.below(60));
  const SortedValues sorted(values);
  const statistics::Summary summary = statistics::summarize(sorted);
  const double lower =
      *summary.mean - (0.5 + static_cast<double>(data.below(5))) * *summary.standardDeviation;
  const double upper =
      *summary.mean + (0.5 + static_cast<double>(data.below(5))) * *summary.standardDeviation;
  const statistics::Capability capability =
      statistics::capability(summary, statistics::movingRangeSpread(values),
                             statistics::andersonDarling(sorted, summary), {lower, upper});
  Question question{"capability" + hexadecimal({lower, upper}) + hexadecimal(values), {}};
  for (const statistics::Indices* indices : {&capability.overall, &capability.within}) {
    const auto& [both, nearest] = std::tie(indices->both, indices->nearest);
    for (const double number :
         {*both.value, *nearest.value, both.interval->lower, both.interval->upper,
          nearest.interval->lower, nearest.interval->upper}) {
      question.answer.push_back(number);
    }
  }
  question.answer.push_back(*capability.overall.ppm.outside);
  question.answer.push_back(*capability.within.ppm.outside);
  return question;
}

Question compare(Data& data) {
  Numbers first = data.values(16 + data.below(60));
  const auto middle =
      first.begin() + static_cast<std::ptrdiff_t>(8 + data.below(first.size() - 15));
  const Numbers second(middle, first.end());
  const double count = static_cast<double>(middle - first.begin());
  const std::string text = "compare" + hexadecimal({count}) + hexadecimal(first);
  first.erase(middle, first.end());
  const statistics::Comparison comparison =
      statistics::compare(SortedValues(first), SortedValues(second));
  return {text,
          {comparison.means->statistic, comparison.means->degreesOfFreedom, comparison.means->p,
           comparison.shiftInterval->lower, comparison.shiftInterval->upper,
           comparison.spreads->statistic, comparison.spreads->p, comparison.ranks->statistic,
           comparison.ranks->p}};
}

Question study(Data& data) {
  const std::size_t parts = 2 + data.below(5);
  const std::size_t appraisers = 2 + data.below(3);
  const std::size_t trials = 2 + data.below(3);
  Numbers values = data.values(parts * appraisers * trials);
  const auto readings =
      test::readingsOf(static_cast<int>(appraisers), static_cast<int>(trials), values);
  statistics::GaugeOptions options;
  options.poolAbove = 1;
  const statistics::GaugeStudy full = *statistics::gaugeStudy(readings, options);
  options.poolAbove = -1;
  const statistics::GaugeStudy pooled = *statistics::gaugeStudy(readings, options);
  Question question{"study" +
                        hexadecimal({static_cast<double>(parts), static_cast<double>(appraisers),
                                     static_cast<double>(trials)}) +
                        hexadecimal(values),
                    {}};
  for (const auto& row : full.anova) question.answer.push_back(row.sumOfSquares);
  for (const auto* row : {&full.anova[0], &full.anova[1], &full.anova[2], &pooled.pooledAnova[0],
                          &pooled.pooledAnova[1]}) {
    question.answer.push_back(*row->f);
    question.answer.push_back(*row->p);
  }
  for (const auto* component :
       {&full.repeatability, &full.interaction, &full.appraiser, &full.partToPart,
        &pooled.repeatability, &pooled.appraiser, &pooled.partToPart}) {
    question.answer.push_back(component->variance);
  }
  return question;
}

/// The lines that the oracle answers.
std::vector<std::string> answersTo(const std::vector<Question>& questions) {
  const test::TemporaryFolder folder;
  const std::string file = folder.path() / "questions";
  std::ofstream stream(file);
  for (const Question& question : questions) stream << question.text << '\n';
  stream.close();
  const std::string command = PYTHON " -B " ORACLE " < " + file;
  std::vector<std::string> lines;
  FILE* answers = ::popen(command.c_str(), "r");
  char* line = nullptr;
  std::size_t size = 0;
  while (::getline(&line, &size, answers) > 0) lines.emplace_back(line);
  ::free(line);
  EXPECT_EQ(::pclose(answers), 0);
  return lines;
}

TEST(Statistics, AgreesWithAnIndependentComputation) {
  Data data;
  std::vector<Question> questions;
  for (const auto& ask :
       {proportion, percentile, summary, pooled, normality, capability, compare, study}) {
    for (int i = 0; i < 15; ++i) questions.push_back(ask(data));
  }
  const std::vector<std::string> lines = answersTo(questions);
  ASSERT_EQ(lines.size(), questions.size() + 1);
  std::printf("%s", lines.front().c_str());
  for (std::size_t i = 0; i < questions.size(); ++i) {
    std::istringstream words(lines[i + 1]);
    std::string word;
    for (const double answer : questions[i].answer) {
      ASSERT_TRUE(words >> word) << questions[i].text;
      const double expected = std::strtod(word.c_str(), nullptr);
      EXPECT_NEAR(answer, expected, 1e-7 * std::abs(expected) + 1e-12) << questions[i].text;
    }
    EXPECT_FALSE(words >> word) << questions[i].text;
  }
}

}  // namespace

#endif

#include "ConfigFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

using host::Settings;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

namespace {

Settings parsed(const std::string& text) {
  std::istringstream input(text);
  return host::parseConfig(input, "camera.conf");
}

}  // namespace

TEST(ConfigFile, KeysAndValuesAreTrimmedAndTheFirstEqualsSignSeparates) {
  EXPECT_THAT(
      parsed("\xEF\xBB\xBF"
             "A=1\r\n"
             "\n"
             " \t\r\n"
             "# B=2\n"
             "\tC D \t=\t x = y # z \r\n"
             "EMPTY=\n"
             "A=2"),
      ElementsAre(Pair("A", "1"), Pair("C D", "x = y # z"), Pair("EMPTY", ""), Pair("A", "2")));
}

TEST(ConfigFile, AProblemNamesFileAndLine) {
  const struct {
    const char* text;
    const char* where;
  } cases[] = {
      {"A=1\n\n#\nB\n", "camera.conf:4: "},
      {" = 1\n", "camera.conf:1: "},
      {"A=1\nA", "camera.conf:2: "},
  };
  for (const auto& c : cases) {
    try {
      parsed(c.text);
      ADD_FAILURE() << c.text;
    } catch (const host::UsageError& problem) {
      EXPECT_THAT(problem.what(), HasSubstr(c.where));
    }
  }
}

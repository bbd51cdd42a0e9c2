#include "memory/format_bytes.h"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <utility>

namespace {

TEST(FormatBytes, StepsAt1024AndDividesBy1000) {
  const std::pair<long long, const char*> rows[] = {
      {0, "0 Bytes"},
      {1, "1 Bytes"},
      {1000, "1000 Bytes"},
      {1023, "1023 Bytes"},
      {1024, "1.02 KB"},
      {1500, "1.50 KB"},
      {1'000'000, "1000.00 KB"},
      {1'048'575, "1048.58 KB"},
      {1'048'576, "1.05 MB"},
      {1'073'741'824, "1.07 GB"},
      {1'099'511'627'776, "1.10 TB"},
      {1'125'899'906'842'624, "1125.90 TB"},
      {std::numeric_limits<long long>::max(), "9223372.04 TB"},
      {-1, "-1 Bytes"},
      {-1024, "-1024 Bytes"},
      {std::numeric_limits<long long>::min(), "-9223372036854775808 Bytes"},
  };
  for (const auto& [bytes, text] : rows) EXPECT_EQ(formatBytes(bytes), text) << bytes;
}

TEST(FormatBytes, UsesAPointWhateverTheLocale) {
  if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr &&
      std::setlocale(LC_NUMERIC, "fr_FR.UTF-8") == nullptr) {
    GTEST_SKIP() << "no locale with a decimal comma installed";
  }
  EXPECT_EQ(formatBytes(1500), "1.50 KB");
  std::setlocale(LC_NUMERIC, "C");
}

}  // namespace

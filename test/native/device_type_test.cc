// The kind of machine: the classification rules with and without a battery,
// both sources of the model identifier, and the power-source scan. The
// fixture checks that every path released what it took.
#include "system/device_type.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "platform_test.h"

namespace {

using vemora::platform::Failure;
using vemora::platform::Value;
using vemora::system::DeviceType;
using vemora::system::GetDeviceType;
using Kind = fake::ModelProperty::Kind;
using Type = fake::PowerSource::Type;

constexpr DeviceType kLaptop = DeviceType::Laptop, kDesktop = DeviceType::Desktop,
                     kMini = DeviceType::MacMini, kStudio = DeviceType::MacStudio,
                     kOther = DeviceType::Other;

long CountCalls(const char* name) {
  return std::count(fake::calls().begin(), fake::calls().end(), name);
}

// ---- Classification: each identifier (from "hw.model") with and without a battery -----

struct RuleRow {
  std::optional<std::string> model;  // unset: no source has one
  DeviceType with_battery, without_battery;
  bool asks_battery = true;
};
void PrintTo(const RuleRow& row, std::ostream* out) { *out << row.model.value_or("(none)"); }
class Classification : public PlatformTestWithParam<std::tuple<RuleRow, bool>> {};

TEST_P(Classification, FollowsTheRulesInOrder) {
  const auto& [row, battery] = GetParam();
  script().hw_model = row.model ? Value(*row.model + '\0') : Failure<std::string>(2);
  if (!battery) script().power_sources.clear();
  EXPECT_EQ(GetDeviceType(), battery ? row.with_battery : row.without_battery);
  EXPECT_EQ(CountCalls("power_sources_info_copy"), row.asks_battery ? 1 : 0);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, Classification, ::testing::Combine(::testing::Values(
    RuleRow{"MacBookPro18,3", kLaptop, kLaptop, false}, RuleRow{"MacBook", kLaptop, kLaptop, false},
    RuleRow{"Macmini9,1", kMini, kMini, false}, RuleRow{"Macmini8,1", kMini, kMini, false},
    RuleRow{"MacStudio1,1", kStudio, kStudio, false},
    RuleRow{"Mac14,3", kMini, kMini, false}, RuleRow{"Mac14,12", kMini, kMini, false},
    RuleRow{"Mac16,10", kMini, kMini, false}, RuleRow{"Mac16,11", kMini, kMini, false},
    RuleRow{"Mac13,1", kStudio, kStudio, false}, RuleRow{"Mac13,2", kStudio, kStudio, false},
    RuleRow{"Mac14,13", kStudio, kStudio, false}, RuleRow{"Mac14,14", kStudio, kStudio, false},
    RuleRow{"Mac15,13", kStudio, kStudio, false}, RuleRow{"Mac15,14", kStudio, kStudio, false},
    RuleRow{"Mac16,9", kStudio, kStudio, false},
    RuleRow{"Mac16,9x", kLaptop, kDesktop}, RuleRow{"Mac14,1", kLaptop, kDesktop},
    RuleRow{"Mac14,6", kLaptop, kDesktop}, RuleRow{"iMac21,1", kLaptop, kDesktop},
    RuleRow{"MacPro7,1", kLaptop, kDesktop}, RuleRow{"Mac", kLaptop, kDesktop},
    RuleRow{"Ma", kLaptop, kOther}, RuleRow{"macbookpro18,3", kLaptop, kOther},
    RuleRow{"MACMINI9,1", kLaptop, kOther}, RuleRow{"ThinkPad", kLaptop, kOther},
    RuleRow{std::nullopt, kLaptop, kOther}), ::testing::Bool()),
    [](const auto& row) {
      std::string name = std::get<0>(row.param).model.value_or("no_identifier");
      std::replace(name.begin(), name.end(), ',', '_');
      return name + (std::get<1>(row.param) ? "_with_battery" : "_without_battery");
    });
// clang-format on

// ---- Where the identifier comes from. No battery, so the identifier alone decides; the
// registry holds a different model than "hw.model" wherever both have one. ------------------

struct SourceRow {
  const char* name;
  std::optional<std::string> sysctl;  // unset: the read fails
  fake::ModelProperty registry;
  DeviceType expected;
  void (*quirk)(fake::Script&) = [](fake::Script&) {};
};
void PrintTo(const SourceRow& row, std::ostream* out) { *out << row.name; }
class IdentifierSource : public PlatformTestWithParam<SourceRow> {};

TEST_P(IdentifierSource, FallsBackFromSysctlToTheRegistry) {
  const SourceRow& row = GetParam();
  script().power_sources.clear();
  script().hw_model = row.sysctl ? Value(*row.sysctl) : Failure<std::string>(2);
  script().model_property = row.registry;
  row.quirk(script());
  EXPECT_EQ(GetDeviceType(), row.expected);
}

template <std::size_t N>
std::string Bytes(const char (&text)[N]) {
  return std::string(text, N - 1);  // keeps embedded and trailing NULs
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, IdentifierSource, ::testing::Values(
    SourceRow{"sysctl_padded_with_zeros", Bytes("Mac13,1\0\0\0"), {Kind::kString, "Macmini9,1"},
              kStudio},
    SourceRow{"sysctl_fails_registry_string", std::nullopt, {Kind::kString, "Macmini9,1"}, kMini},
    SourceRow{"sysctl_empty_registry_data_nuls", "", {Kind::kData, Bytes("Mac14,3\0\0")}, kMini},
    SourceRow{"sysctl_all_zero", Bytes("\0\0\0\0"), {Kind::kString, "Mac16,9"}, kStudio},
    SourceRow{"sysctl_second_read_fails", "Mac13,1", {Kind::kString, "Macmini9,1"}, kMini,
              [](fake::Script& s) { s.hw_model_second_read_fails = true; }},
    SourceRow{"sysctl_second_read_reports_0", "Mac13,1", {Kind::kString, "Macmini9,1"}, kMini,
              [](fake::Script& s) { s.hw_model_read_length = 0; }},
    SourceRow{"registry_string_ends_at_nul", std::nullopt,
              {Kind::kString, Bytes("Macmini9,1\0Mac13,1")}, kMini},
    SourceRow{"registry_string_empty", std::nullopt, {Kind::kString, ""}, kOther},
    SourceRow{"registry_string_unconvertible", std::nullopt, {Kind::kString, "Macmini9,1", true},
              kOther},
    SourceRow{"registry_data_empty", std::nullopt, {Kind::kData, ""}, kOther},
    SourceRow{"registry_data_all_nul", std::nullopt, {Kind::kData, Bytes("\0\0\0")}, kOther},
    SourceRow{"registry_other_kind", std::nullopt, {Kind::kOther, "Macmini9,1"}, kOther},
    SourceRow{"registry_without_model", std::nullopt, {Kind::kAbsent, ""}, kOther},
    SourceRow{"no_platform_expert", std::nullopt, {Kind::kString, "Macmini9,1"}, kOther,
              [](fake::Script& s) { s.platform_expert_service = false; }}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

// ---- The internal-battery scan ("Mac14,6": Laptop with a battery, Desktop without) ------

fake::PowerSource Source(Type kind, std::string type = "InternalBattery", bool present = true,
                         bool described = true) {
  return fake::PowerSource{present, described, kind, std::move(type)};
}
const fake::PowerSource kBattery = Source(Type::kString);
const fake::PowerSource kNull = Source(Type::kString, "InternalBattery", false);
const fake::PowerSource kUndescribed = Source(Type::kString, "InternalBattery", true, false);

struct BatteryRow {
  const char* name;
  std::vector<fake::PowerSource> sources;
  DeviceType expected;
  long comparisons;
  void (*quirk)(fake::Script&) = [](fake::Script&) {};
};
void PrintTo(const BatteryRow& row, std::ostream* out) { *out << row.name; }
class BatteryScan : public PlatformTestWithParam<BatteryRow> {};

TEST_P(BatteryScan, SkipsWhatIsNotAStringType) {
  script().power_sources = GetParam().sources;
  GetParam().quirk(script());
  EXPECT_EQ(GetDeviceType(), GetParam().expected);
  EXPECT_EQ(CountCalls("cf_string_equal"), GetParam().comparisons);
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(Rows, BatteryScan, ::testing::Values(
    BatteryRow{"internal_battery", {kBattery}, kLaptop, 1},
    BatteryRow{"no_sources", {}, kDesktop, 0},
    BatteryRow{"scan_stops_at_first_match", {kBattery, kBattery}, kLaptop, 1},
    BatteryRow{"null_element_skipped", {kNull, kBattery}, kLaptop, 1},
    BatteryRow{"no_description_skipped", {kUndescribed, kBattery}, kLaptop, 1},
    BatteryRow{"type_missing_skipped", {Source(Type::kMissing), kBattery}, kLaptop, 1},
    BatteryRow{"type_not_string_skipped", {Source(Type::kNotString), kBattery}, kLaptop, 1},
    BatteryRow{"only_a_type_not_string", {Source(Type::kNotString)}, kDesktop, 0},
    BatteryRow{"ups_only", {Source(Type::kString, "UPS")}, kDesktop, 1},
    BatteryRow{"type_differs_in_case", {Source(Type::kString, "internalbattery")}, kDesktop, 1},
    BatteryRow{"no_snapshot", {kBattery}, kDesktop, 0,
               [](fake::Script& s) { s.power_info = false; }},
    BatteryRow{"no_list", {kBattery}, kDesktop, 0, [](fake::Script& s) { s.power_list = false; }},
    BatteryRow{"comparison_string_not_created", {kBattery}, kDesktop, 0,
               [](fake::Script& s) { s.battery_string_created = false; }}),
    [](const auto& row) { return std::string(row.param.name); });
// clang-format on

}  // namespace

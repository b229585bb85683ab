// Status helpers: Win32 codes to HRESULTs, the last-error rule, status text, the placeholder.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>

#include "frame/status.h"
#include "test_os.h"

namespace {

using framedsp::HRESULT;

constexpr HRESULT hr(uint32_t bits) { return static_cast<HRESULT>(bits); }

struct Win32Case {
  const char *name;
  int32_t value;
  HRESULT expected;
};

class HresultFromWin32 : public ::testing::TestWithParam<Win32Case> {};

TEST_P(HresultFromWin32, MapsAsDocumented) {
  EXPECT_EQ(framedsp::hresult_from_win32(GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Status, HresultFromWin32,
    ::testing::Values(Win32Case{"zero", 0, 0}, Win32Case{"minus_one", -1, -1},
                      Win32Case{"most_negative", INT32_MIN, INT32_MIN},
                      Win32Case{"already_hresult", hr(0x80004005u), hr(0x80004005u)},
                      Win32Case{"access_denied", 5, hr(0x80070005u)},
                      Win32Case{"high_bits_dropped", 0x12345, hr(0x80072345u)},
                      Win32Case{"largest", INT32_MAX, hr(0x8007FFFFu)}),
    [](const auto &info) { return std::string(info.param.name); });

struct ErrorCase {
  const char *name;
  uint32_t wait_result;
  int32_t last_error;
  HRESULT expected;
};

class StatusFromError : public ::testing::TestWithParam<ErrorCase> {};

TEST_P(StatusFromError, MapsAsDocumented) {
  const ErrorCase &c = GetParam();
  EXPECT_EQ(framedsp::status_from_error(c.wait_result, c.last_error), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Status, StatusFromError,
    ::testing::Values(
        // A timed-out wait ignores whatever the last error holds.
        ErrorCase{"timeout", 258, 0, hr(0x80070102u)},
        ErrorCase{"timeout_with_error", 258, 5, hr(0x80070102u)},
        ErrorCase{"no_error_is_fail", 0, 0, framedsp::kFail},
        ErrorCase{"access_denied", 0, 5, hr(0x80070005u)},
        ErrorCase{"other_wait_result", 257, 5, hr(0x80070005u)},
        ErrorCase{"largest_plain_code", 0, 0x7FFF, hr(0x80077FFFu)},
        // Any bit of 0xFFFF8000 means the value is passed through, unlike hresult_from_win32.
        ErrorCase{"bit15_unchanged", 0, 0x8000, 0x8000},
        ErrorCase{"bit15_plus_low_unchanged", 0, 0x8001, 0x8001},
        ErrorCase{"bit16_unchanged", 0, 0x12345, 0x12345},
        ErrorCase{"negative_unchanged", 0, -7, -7},
        ErrorCase{"hresult_unchanged", 0, hr(0x8007000Eu), hr(0x8007000Eu)}),
    [](const auto &info) { return std::string(info.param.name); });

// The thread's last error: errno on POSIX, GetLastError() on Windows.
TEST(LastErrorStatus, ReadsTheThreadsLastError) {
  framedsp_test::set_last_error(5);
  EXPECT_EQ(framedsp::last_error_status(0), hr(0x80070005u));
  framedsp_test::set_last_error(0);
  EXPECT_EQ(framedsp::last_error_status(0), framedsp::kFail);
}

TEST(LastErrorStatus, TimeoutDoesNotDependOnTheLastError) {
  framedsp_test::set_last_error(0);
  EXPECT_EQ(framedsp::last_error_status(258), hr(0x80070102u));
  framedsp_test::set_last_error(22);
  EXPECT_EQ(framedsp::last_error_status(258), hr(0x80070102u));
}

TEST(StatusText, PendingHasItsName) {
  EXPECT_STREQ(framedsp::StatusText(hr(0x8000000Au)).c_str(), "E_PENDING");
}

TEST(StatusText, OtherValuesAreEightHexDigits) {
  EXPECT_STREQ(framedsp::StatusText(framedsp::kPointer).c_str(), "0x80004003");
  EXPECT_STREQ(framedsp::StatusText(framedsp::kUnexpected).c_str(), "0x8000FFFF");
  EXPECT_STREQ(framedsp::StatusText(0).c_str(), "0x00000000");
  EXPECT_STREQ(framedsp::StatusText(0x2A).c_str(), "0x0000002A");
  // One past E_PENDING is just a number.
  EXPECT_STREQ(framedsp::StatusText(hr(0x8000000Bu)).c_str(), "0x8000000B");
}

bool points_into(const framedsp::StatusText &text) {
  const char *p = text.c_str();
  const char *begin = reinterpret_cast<const char *>(&text);
  return p >= begin && p < begin + sizeof text;
}

TEST(StatusText, CopyOutlivesTheOriginal) {
  auto original = std::make_unique<framedsp::StatusText>(framedsp::kHandle);
  framedsp::StatusText copy(*original);
  auto pending = std::make_unique<framedsp::StatusText>(hr(0x8000000Au));
  framedsp::StatusText assigned(0);
  assigned = *pending;
  // Scribble over the originals before freeing them, so a dangling pointer cannot pass by luck.
  std::memset(static_cast<void *>(original.get()), 'x', sizeof *original);
  std::memset(static_cast<void *>(pending.get()), 'x', sizeof *pending);
  original.reset();
  pending.reset();
  EXPECT_TRUE(points_into(copy));
  EXPECT_TRUE(points_into(assigned));
  EXPECT_STREQ(copy.c_str(), "0x80070006");
  EXPECT_STREQ(assigned.c_str(), "E_PENDING");
}

TEST(StatusText, SelfAssignmentKeepsTheText) {
  framedsp::StatusText text(framedsp::kFail);
  framedsp::StatusText &alias = text;
  text = alias;
  EXPECT_TRUE(points_into(text));
  EXPECT_STREQ(text.c_str(), "0x80004005");
}

TEST(PlaceholderOperation, NullIsPointerOtherwiseNotImplemented) {
  int anything = 0;
  EXPECT_EQ(framedsp::placeholder_operation(nullptr), framedsp::kPointer);
  EXPECT_EQ(framedsp::placeholder_operation(&anything), framedsp::kNotImpl);
}

}  // namespace

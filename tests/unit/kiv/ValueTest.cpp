#include "KivValue.h"

#include <gtest/gtest.h>

#include "KivQuoted.h"

namespace {

using Kiv::Value;

TEST(Quoted, ShowsAnyTextInOneLine) {
  EXPECT_EQ(Kiv::quoted(""), "\"\"");
  EXPECT_EQ(Kiv::quoted("Ethernet1"), "\"Ethernet1\"");
  EXPECT_EQ(Kiv::quoted("a\"b\\c"), R"("a\"b\\c")");
  EXPECT_EQ(Kiv::quoted("a\nb\x1b\x7f\x1f"), R"("a\u000ab\u001b\u007f\u001f")");
  EXPECT_EQ(Kiv::quoted("\xc3\xa9"), "\"\xc3\xa9\"");
}

TEST(Value, ConvertsWithinAKindAndNeverBetweenKinds) {
  EXPECT_EQ(Kiv::ValueTraits<std::uint8_t>::fromValue(Value(255)), 255);
  EXPECT_THROW(Kiv::ValueTraits<std::uint8_t>::fromValue(Value(256)), Kiv::ValueError);
  EXPECT_THROW(Kiv::ValueTraits<std::uint32_t>::fromValue(Value(-1)), Kiv::ValueError);
  EXPECT_THROW(Kiv::ValueTraits<std::uint32_t>::fromValue(Value("1")), Kiv::ValueError);
  EXPECT_THROW(Kiv::ValueTraits<std::uint32_t>::fromValue(Value(1.0)), Kiv::ValueError);
  EXPECT_THROW(Kiv::ValueTraits<bool>::fromValue(Value(1)), Kiv::ValueError);
  EXPECT_THROW(Kiv::ValueTraits<Kiv::String>::fromValue(Value(true)), Kiv::ValueError);
  EXPECT_EQ(Kiv::ValueTraits<double>::fromValue(Value(2)), 2.0);
}

TEST(Value, SignedAndUnsignedHoldTheirWholeRange) {
  EXPECT_EQ(Kiv::ValueTraits<std::uint64_t>::fromValue(Value(UINT64_MAX)), UINT64_MAX);
  EXPECT_EQ(Kiv::ValueTraits<std::int64_t>::fromValue(Value(INT64_MIN)), INT64_MIN);
  EXPECT_THROW(Kiv::ValueTraits<std::int64_t>::fromValue(Value(UINT64_MAX)), Kiv::ValueError);
}

TEST(Value, EqualNumbersAreEqualWhateverTheirSign) {
  EXPECT_EQ(Value(7), Value(7U));
  EXPECT_NE(Value(-1), Value(UINT64_MAX));
  EXPECT_NE(Value(1), Value(true));
}

TEST(Value, TextIsForPeopleAndQuotesOnlyInside) {
  const Value value(Value::Object{{"name", "a\"b"}, {"list", Value::List{Value(1), Value(true)}}});
  EXPECT_EQ(value.text(), R"({"name": "a\"b", "list": [1, true]})");
  EXPECT_EQ(Value("plain").text(), "plain");
  EXPECT_EQ(Value("plain").described(), "the string \"plain\"");
}

TEST(Value, MembersAreFoundByName) {
  const Value value(Value::Object{{"one", 1}});
  ASSERT_NE(value.member("one"), nullptr);
  EXPECT_EQ(*value.member("one"), Value(1));
  EXPECT_EQ(value.member("two"), nullptr);
  EXPECT_EQ(Value(1).member("one"), nullptr);
}

TEST(Value, ErrorsSayWhatWasExpectedAndWhatCame) {
  try {
    Kiv::ValueTraits<bool>::fromValue(Value("yes"));
    FAIL();
  } catch (const Kiv::ValueError& error) {
    EXPECT_STREQ(error.what(), "expected true or false, got the string \"yes\"");
  }
}

}  // namespace

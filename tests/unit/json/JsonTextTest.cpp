#include "json/JsonText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace {

using Kiv::Value;
using ::testing::HasSubstr;

class Lamp : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<Lamp>("House::Lamp").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
};

std::string errorOf(std::string_view text) {
  try {
    Json::parse(text);
  } catch (const Kiv::ValueError& error) {
    return error.what();
  }
  return "no error";
}

TEST(JsonText, WhatIsWrittenReadsBackEqual) {
  const Value value(Value::Object{{"b", true},
                                  {"n", Value()},
                                  {"i", std::int64_t{-5}},
                                  {"u", std::numeric_limits<std::uint64_t>::max()},
                                  {"d", 1.5},
                                  {"s", "a \"quoted\" \\ line\n"},
                                  {"l", Value::List{1, Value::Object{}, Value::List{}}}});
  EXPECT_EQ(Json::parse(Json::text(value)), value);
}

TEST(JsonText, MembersKeepTheirOrder) {
  const Value value(Value::Object{{"z", 1}, {"a", 2}, {"m", 3}});
  EXPECT_EQ(Json::text(value), R"({"z":1,"a":2,"m":3})");
  EXPECT_EQ(Json::text(Json::parse(R"({"z":1,"a":2,"m":3})")), R"({"z":1,"a":2,"m":3})");
}

TEST(JsonText, AnEntityIsItsTypeAndName) {
  const auto lamp = Kiv::makePtr<Lamp>("hall");
  EXPECT_EQ(Json::text(Value(Kiv::Ptr<const Kiv::PtrInterface>(lamp))),
            R"({"type":"House::Lamp","name":"hall"})");
  EXPECT_EQ(Json::text(Value(Kiv::Ptr<const Kiv::PtrInterface>())), "null");
}

TEST(JsonText, BytesThatAreNoTextAreReplaced) {
  EXPECT_EQ(Json::text(Value(std::string("a\xff"))), "\"a\xEF\xBF\xBD\"");
}

TEST(JsonText, NumbersThatJsonDoesNotKnowAreNull) {
  EXPECT_EQ(Json::text(Value(std::numeric_limits<double>::infinity())), "null");
}

TEST(JsonText, AnOpaqueValueHasNoText) {
  EXPECT_THROW(Json::text(Value::opaque(1)), Kiv::ValueError);
}

TEST(JsonText, RefusesWhatIsNoJsonAndSaysWhere) {
  EXPECT_THAT(errorOf(R"({"a":})"), HasSubstr("not JSON at byte 6"));
  EXPECT_THAT(errorOf(""), HasSubstr("not JSON at byte"));
  EXPECT_THAT(errorOf("1 2"), HasSubstr("not JSON at byte 3"));
  EXPECT_THAT(errorOf("{\"a\":1"), HasSubstr("not JSON at byte"));
  EXPECT_THAT(errorOf("'a'"), HasSubstr("not JSON at byte 1"));
}

TEST(JsonText, RefusesAMemberThatComesTwice) {
  EXPECT_THAT(errorOf(R"({"vlan":1,"vlan":2})"), HasSubstr("member \"vlan\" comes twice"));
  EXPECT_EQ(errorOf(R"({"vl\nan":1,"vl\nan":2})"), R"(member "vl\u000aan" comes twice)") << "in one line";
}

TEST(JsonText, RefusesIntegersBeyond64Bits) {
  EXPECT_THAT(errorOf("18446744073709551616"), HasSubstr("18446744073709551616 does not fit 64 bits"));
  EXPECT_EQ(Json::parse("18446744073709551615"), Value(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(Json::parse("-9223372036854775808"), Value(std::numeric_limits<std::int64_t>::min()));
}

TEST(JsonText, RefusesTextNestedTooDeep) {
  const std::string fits = std::string(Json::kMostDepth, '[') + std::string(Json::kMostDepth, ']');
  EXPECT_EQ(errorOf(fits), "no error");
  EXPECT_THAT(errorOf(std::string(100'000, '[')), HasSubstr("levels deep"));
}

TEST(JsonText, RefusesBytesThatAreNoText) {
  EXPECT_THAT(errorOf("\"a\xff\""), HasSubstr("not JSON at byte 3"));
}

TEST(JsonText, AnObjectOfTypeAndNameBecomesTheEntity) {
  const auto lamp = Kiv::makePtr<Lamp>("hall");
  const auto find = [&](std::string_view type, std::string_view name) -> Kiv::Ptr<const Kiv::PtrInterface> {
    if (type == "House::Lamp" && name == "hall") return lamp;
    return {};
  };
  const Value asked = Json::parse(R"({"lamps":[{"type":"House::Lamp","name":"hall"}],"type":"x"})");
  const Value expected(
      Value::Object{{"lamps", Value::List{Kiv::Ptr<const Kiv::PtrInterface>(lamp)}}, {"type", "x"}});
  EXPECT_EQ(Json::withEntities(asked, find), expected);
  EXPECT_THROW(Json::withEntities(Json::parse(R"({"type":"House::Lamp","name":"attic"})"), find),
               Kiv::ValueError);
}

}  // namespace

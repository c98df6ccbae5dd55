#include <gmock/gmock.h>

#include "Command.h"
#include "FlowArguments.h"
#include "json/JsonText.h"

namespace {

using Sft::FlowArguments;
using testing::HasSubstr;

using Set = std::initializer_list<std::pair<std::string FlowArguments::*, const char*>>;

FlowArguments with(Set members) {
  FlowArguments arguments;
  for (const auto& [member, text] : members) arguments.*member = text;
  return arguments;
}
std::string pattern(Set members) {
  return Json::text(Kiv::ValueTraits<FlowTracking::FlowPattern>::toValue(Sft::flowPattern(with(members))));
}
std::string ofSource(const char* source) {
  return pattern({{&FlowArguments::source, source}});
}
std::string misuse(Set members) {
  try {
    Sft::flowPattern(with(members));
  } catch (const Sft::MisuseError& error) {
    return error.what();
  }
  return "understood";
}

TEST(FlowPatternArgumentsTest, AnEndMayHaveAnyOfItsParts) {
  EXPECT_EQ(ofSource(""), "{}");
  EXPECT_EQ(ofSource("*"), "{}");
  EXPECT_EQ(ofSource("*:*"), "{}");
  EXPECT_EQ(ofSource("*:80"), R"({"sourcePort":80})");
  EXPECT_EQ(ofSource("10.0.0.1"), R"({"source":"10.0.0.1"})");
  EXPECT_EQ(ofSource("10.0.0.0/8:*"), R"({"source":"10.0.0.0/8"})");
  EXPECT_EQ(ofSource("10.0.0.1:80"), R"({"source":"10.0.0.1","sourcePort":80})");
  EXPECT_EQ(ofSource("2001:db8::1"), R"({"source":"2001:db8::1"})");
  EXPECT_EQ(ofSource("::/0"), R"({"source":"::/0"})");
  EXPECT_EQ(ofSource("[2001:db8::/32]:53"), R"({"source":"2001:db8::/32","sourcePort":53})");
  EXPECT_EQ(ofSource("[2001:db8::1]"), R"({"source":"2001:db8::1"})");
}

TEST(FlowPatternArgumentsTest, EachArgumentCounts) {
  EXPECT_EQ(pattern({{&FlowArguments::destination, "10.0.0.2:80"},
                     {&FlowArguments::proto, "tcp"},
                     {&FlowArguments::vlan, "10"},
                     {&FlowArguments::direction, "egress"},
                     {&FlowArguments::interface, "Ethernet1"},
                     {&FlowArguments::vrf, "7"}}),
            R"({"destination":"10.0.0.2","destinationPort":80,"protocol":6,"vlan":10,"vrf":7,"direction":2,)"
            R"("interface":"Ethernet1"})");
  EXPECT_EQ(pattern({{&FlowArguments::proto, "*"},
                     {&FlowArguments::vlan, "*"},
                     {&FlowArguments::direction, "*"},
                     {&FlowArguments::interface, "*"},
                     {&FlowArguments::vrf, "*"}}),
            "{}");
}

TEST(FlowPatternArgumentsTest, WhatCannotBeUnderstoodIsNamed) {
  EXPECT_THAT(misuse({{&FlowArguments::source, "10.0.0"}}), HasSubstr("SOURCE \"10.0.0\""));
  EXPECT_THAT(misuse({{&FlowArguments::source, "10.0.0.1/33"}}), HasSubstr("prefix length up to 32"));
  EXPECT_THAT(misuse({{&FlowArguments::source, "10.0.0.1:"}}), HasSubstr("a port, or none"));
  EXPECT_THAT(misuse({{&FlowArguments::source, "10.0.0.1:65536"}}), HasSubstr("a port up to 65535"));
  EXPECT_THAT(misuse({{&FlowArguments::source, "[::1"}}), HasSubstr("a ]"));
  EXPECT_THAT(misuse({{&FlowArguments::source, "[::1]80"}}), HasSubstr("nothing or :PORT"));
  EXPECT_THAT(misuse({{&FlowArguments::source, "10.0.0.1"}, {&FlowArguments::destination, "::1"}}),
              HasSubstr("the family that SOURCE has"));
  EXPECT_THAT(misuse({{&FlowArguments::proto, "icmp"}}), HasSubstr("--proto"));
  EXPECT_THAT(misuse({{&FlowArguments::vlan, "4096"}}), HasSubstr("--vlan"));
  EXPECT_THAT(misuse({{&FlowArguments::direction, "up"}}), HasSubstr("--direction"));
  EXPECT_THAT(misuse({{&FlowArguments::vrf, "x"}}), HasSubstr("--vrf"));
}

}  // namespace

#include "Cliprint.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

using cliprint::PrinterV2;
using cliprint::Style;

std::string numberText(std::uint64_t number) {
  PrinterV2 printer(Style::compact);
  printer.memberName("n");
  printer.value(number);
  const std::string text = printer.finish();
  return text.substr(5, text.size() - 6);  // between {"n": and }
}

std::string quoted(std::string_view text) {
  PrinterV2 printer(Style::compact);
  printer.memberName("t");
  printer.value(text);
  const std::string all = printer.finish();
  return all.substr(5, all.size() - 6);
}

void twoFlows(PrinterV2& printer) {
  for (const std::uint64_t packets : {1U, 2U}) {
    printer.memberName(packets == 1 ? "a" : "b");
    printer.beginObject();
    printer.memberName("packets");
    printer.value(packets);
    printer.memberName("octets");
    printer.value(packets * 100);
    printer.endObject();
  }
}

TEST(Cliprint, CompactWritesNothingBetween) {
  PrinterV2 printer(Style::compact);
  twoFlows(printer);
  EXPECT_EQ(printer.finish(), R"({"a":{"packets":1,"octets":100},"b":{"packets":2,"octets":200}})");
}

TEST(Cliprint, PrettyIndentsByFourBlanksALevelAndEndsItsOutputWithANewline) {
  PrinterV2 printer(Style::pretty);
  twoFlows(printer);
  EXPECT_EQ(printer.finish(),
            "{\n"
            "    \"a\": {\n"
            "        \"packets\": 1,\n"
            "        \"octets\": 100\n"
            "    },\n"
            "    \"b\": {\n"
            "        \"packets\": 2,\n"
            "        \"octets\": 200\n"
            "    }\n"
            "}\n");
}

TEST(Cliprint, NothingWrittenIsAnEmptyObject) {
  EXPECT_EQ(PrinterV2(Style::compact).finish(), "{}");
  EXPECT_EQ(PrinterV2(Style::pretty).finish(), "{}\n");
}

TEST(Cliprint, AMemberBehindAnObjectIsSetOffByAComma) {
  PrinterV2 printer(Style::compact);
  printer.memberName("a");
  printer.beginObject();
  printer.endObject();
  printer.memberName("b");
  printer.value("text");
  EXPECT_EQ(printer.finish(), R"({"a":{},"b":"text"})");
}

TEST(Cliprint, BufferShowsWhatWasWrittenSoFar) {
  PrinterV2 printer(Style::compact);
  printer.memberName("a");
  EXPECT_EQ(printer.buffer(), R"({"a":)");
  EXPECT_EQ(printer.style(), Style::compact);
}

TEST(Cliprint, NumbersAreExactAtEveryLength) {
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 20; ++digits) {
    for (const std::uint64_t number : {power - 1, power, power + 1, power * 9 + power / 7}) {
      EXPECT_EQ(numberText(number), std::to_string(number));
    }
    power *= 10;
  }
  for (std::uint64_t number = 0; number < 2'000; ++number)
    EXPECT_EQ(numberText(number), std::to_string(number));
  EXPECT_EQ(numberText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(Cliprint, EscapesQuotesBackslashesAndControlCharacters) {
  EXPECT_EQ(quoted(R"(a"b\c)"), R"("a\"b\\c")");
  EXPECT_EQ(quoted("\b\f\n\r\t"), R"("\b\f\n\r\t")");
  EXPECT_EQ(quoted(std::string_view("\0\x01\x1f\x7f", 4)), "\"\\u0000\\u0001\\u001f\x7f\"");
  EXPECT_EQ(quoted("Zürich/1"), "\"Zürich/1\"");
}

TEST(Cliprint, EscapesMemberNames) {
  PrinterV2 printer(Style::compact);
  printer.memberName(R"(vrf:"x"\y)");
  printer.value(std::uint64_t{1});
  EXPECT_EQ(printer.finish(), R"({"vrf:\"x\"\\y":1})");
}

}  // namespace

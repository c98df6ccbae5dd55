#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "Pavo.h"

namespace {

using Pavo::IntfId;

TEST(IntfId, IsEmptyWithoutAName) {
  EXPECT_TRUE(IntfId().empty());
  EXPECT_EQ(IntfId(""), IntfId());
  EXPECT_EQ(IntfId().name(), "");
}

TEST(IntfId, HoldsNamesUpToItsLongest) {
  const std::string longest(IntfId::kMost, 'e');
  EXPECT_EQ(IntfId(longest).name(), longest);
  EXPECT_THROW(IntfId(longest + "e"), Kiv::ValueError);
}

TEST(IntfId, DiffersByAnyOfItsBytes) {
  const std::string name(IntfId::kMost, 'a');
  EXPECT_EQ(IntfId(name), IntfId(name));
  for (std::size_t at = 0; at < name.size(); ++at) {
    std::string other = name;
    other[at] = 'b';
    EXPECT_NE(IntfId(name), IntfId(other)) << at;
    EXPECT_NE(IntfId(name), IntfId(name.substr(0, at))) << at;
  }
}

TEST(IntfId, RefusesANul) {
  EXPECT_THROW(IntfId(std::string_view("a\0b", 3)), Kiv::ValueError);
}

TEST(IntfId, OrdersByName) {
  EXPECT_LT(IntfId(), IntfId("Ethernet1"));
  EXPECT_LT(IntfId("Ethernet1"), IntfId("Ethernet10"));
  EXPECT_LT(IntfId("Ethernet10"), IntfId("Ethernet2"));
  EXPECT_EQ(IntfId("Ethernet2") <=> IntfId("Ethernet2"), std::strong_ordering::equal);
}

TEST(IntfId, HashDependsOnNameAndSeed) {
  std::set<std::uint32_t> hashes;
  for (const char* name : {"Ethernet1", "Ethernet2", "Ethernet3", ""}) {
    for (unsigned seed = 0; seed < 4; ++seed) hashes.insert(IntfId(name).hash(seed));
  }
  EXPECT_EQ(hashes.size(), 16U);
  EXPECT_EQ(IntfId("Ethernet1").hash(7), IntfId(std::string("Ethernet1")).hash(7));
}

TEST(IntfId, PrintsItsName) {
  std::ostringstream out;
  out << IntfId("Ethernet3/1");
  EXPECT_EQ(out.str(), "Ethernet3/1");
}

TEST(IntfId, ConvertsToAndFromText) {
  EXPECT_EQ(Kiv::ValueTraits<IntfId>::toValue(IntfId("Ethernet1")), Kiv::Value("Ethernet1"));
  EXPECT_EQ(Kiv::ValueTraits<IntfId>::fromValue(Kiv::Value("Ethernet1")), IntfId("Ethernet1"));
  EXPECT_THROW(Kiv::ValueTraits<IntfId>::fromValue(Kiv::Value(1)), Kiv::ValueError);
}

}  // namespace

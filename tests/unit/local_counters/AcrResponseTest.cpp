#include "AcrResponse.h"

#include <gtest/gtest.h>

#include "Keys.h"
#include "PexaSftHoCounterCollection.h"

namespace {

using LocalCountersTest::flow;
using Pavo::IntfId;
using Pexa::Counter::pexaSftHoCounterCollectionFactory;

template <class Collection>
std::string response(const Collection& collection, cliprint::Style style) {
  cliprint::PrinterV2 printer(style);
  Pexa::Counter::acrResponse(collection, &printer);
  return printer.finish();
}

// A collection of records with names of the test's choice, in the order given.
struct NamedRecord {
  std::string name() const { return text; }
  std::uint64_t packets() const { return 7; }
  std::uint64_t bytes() const { return 8; }
  std::string text;
};
struct NamedCollection {
  struct Entry {
    int key() const { return 0; }
    NamedRecord* value;
  };
  const NamedCollection& counterCollection() const { return *this; }
  const Entry* first() const { return &entry; }
  const Entry* after(int) const { return nullptr; }
  NamedRecord record;
  Entry entry{&record};
};

TEST(AcrResponse, OfAnEmptyCollectionIsAnEmptyObject) {
  EXPECT_EQ(response(pexaSftHoCounterCollectionFactory("c"), cliprint::Style::compact),
            cliprint::PrinterV2(cliprint::Style::compact).finish());
}

TEST(AcrResponse, OfIpv6RecordsOnlyIsAnEmptyObject) {
  const auto collection = pexaSftHoCounterCollectionFactory("c");
  collection->counterIp6CollectionIs(flow<Pavo::Traits::IPv6>(1))->hoCount(IntfId("Ethernet1"), 60);
  EXPECT_EQ(response(collection, cliprint::Style::compact),
            cliprint::PrinterV2(cliprint::Style::compact).finish());
}

TEST(AcrResponse, CompactHasAMemberForEachRecordInTheMapsOrder) {
  const auto collection = pexaSftHoCounterCollectionFactory("c");
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(1))->hoCount(IntfId("Ethernet1"), 60);
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(2))->hoCount(IntfId("Ethernet1"), 4000000000U);
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(2))->hoCount(IntfId("Ethernet1"), 4000000000U);
  std::string expected;
  const auto& map = collection->counterCollection();
  for (const auto* entry = map.first(); entry != nullptr; entry = map.after(entry)) {
    expected += (expected.empty() ? "\"" : ",\"") + entry->value->name() +
                (entry->key().srcPort == 1 ? "\":{\"packets\":1,\"octets\":60}"
                                           : "\":{\"packets\":2,\"octets\":8000000000}");
  }
  EXPECT_EQ(response(collection, cliprint::Style::compact), '{' + expected + '}');
}

TEST(AcrResponse, PrettyIndentsByFourBlanksALevel) {
  const auto collection = pexaSftHoCounterCollectionFactory("c");
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(1))->hoCount(IntfId("Ethernet1"), 60);
  EXPECT_EQ(response(collection, cliprint::Style::pretty),
            "{\n"
            "    \"vrf:16777215/vlan:10/10.0.0.1:1->10.0.0.2:80/tcp\": {\n"
            "        \"packets\": 1,\n"
            "        \"octets\": 60\n"
            "    }\n"
            "}\n");
}

TEST(AcrResponse, EscapesQuotesAndBackslashesOfAName) {
  NamedCollection collection;
  collection.record.text = "a\"b\\c";
  EXPECT_EQ(response(&collection, cliprint::Style::compact),
            "{\"a\\\"b\\\\c\":{\"packets\":7,\"octets\":8}}");
}

TEST(AcrResponse, TheCollectionsOwnWritesTheSame) {
  const auto collection = pexaSftHoCounterCollectionFactory("c");
  collection->counterCollectionIs(flow<Pavo::Traits::IPv4>(1))->hoCount(IntfId("Ethernet1"), 60);
  cliprint::PrinterV2 printer(cliprint::Style::compact);
  collection->acrResponse(&printer);
  EXPECT_EQ(printer.finish(), response(collection, cliprint::Style::compact));
}

}  // namespace

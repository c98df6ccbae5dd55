#include <gtest/gtest.h>

#include "FakePorts.h"
#include "Pexa.h"

namespace {

using TestSupport::FakePorts;

TEST(Ports, FindsAPortByItsInterface) {
  const FakePorts fake(3);
  EXPECT_EQ(fake.ports->port(Pavo::IntfId("Ethernet2")), fake[1]);
  EXPECT_FALSE(fake.ports->port(Pavo::IntfId("Ethernet9")));
  EXPECT_EQ(fake.ports->all().size(), 3U);
}

TEST(Ports, ShowPortsByName) {
  const FakePorts fake(1, 77);
  const Kiv::Ptr<Pexa::PexaPortBase> port = fake.ports->all()[0];
  EXPECT_EQ(Kiv::attribute(*port, "name"), Kiv::Value("Ethernet1"));
  EXPECT_EQ(Kiv::attribute(*port, "intfId"), Kiv::Value("Ethernet1"));
  EXPECT_EQ(Kiv::attribute(*port, "portIndex"), Kiv::Value(0U));
  EXPECT_EQ(Kiv::attribute(*port, "vlan"), Kiv::Value(77U));
  EXPECT_EQ(Kiv::attribute(*fake.ports, "ports"), Kiv::Value(1U));
  EXPECT_THROW(Kiv::attributeIs(*port, "vlan", Kiv::Value(1U)), Kiv::TypeError);
}

#ifndef NDEBUG
TEST(PortsDeath, RefuseAPortOutOfItsOrder) {
  const FakePorts fake(1);
  EXPECT_DEATH(
      fake.ports->portAdd(Kiv::makePtr<Pexa::PexaPortBase>("p", Pavo::IntfId("p"), 5, std::uint16_t{1})),
      "portIndex");
}
#endif

class Collection : public Pexa::Counter::PktCounterCollectionBase {
 public:
  using PktCounterCollectionBase::PktCounterCollectionBase;
  const Kiv::Type& fwkType() const override { return Pexa::Counter::PktCounterCollectionHolder::kivType(); }
  void acrResponse(cliprint::PrinterV2*) const override {}
  Kiv::Value::List records() const override { return {}; }
};

TEST(PktCounterCollectionHolder, HoldsOneCollectionOfAName) {
  const auto holder = Kiv::makePtr<Pexa::Counter::PktCounterCollectionHolder>("holder");
  const auto first = Kiv::makePtr<Collection>("SftHardwareOffload");
  const auto second = Kiv::makePtr<Collection>("SftHardwareOffload");
  holder->collectionIs(first);
  holder->collectionIs(Kiv::makePtr<Collection>("other"));
  holder->collectionIs(second);
  ASSERT_EQ(holder->collections().size(), 2U);
  EXPECT_EQ(holder->collections()[0], second);
  EXPECT_EQ(first->references(), 1U);
  holder->clear();
  EXPECT_EQ(second->references(), 1U);
}

TEST(PktCounterCollectionBase, KeepsItsNameItsKeyTypeAndItsNotifiees) {
  const auto collection = Kiv::makePtr<Collection>("SftHardwareOffload");
  EXPECT_EQ(collection->name(), "SftHardwareOffload");
  EXPECT_NE(collection->notifieeList(), nullptr);
  EXPECT_EQ(collection->keyType(), "");
  collection->keyTypeIs("Flow");
  EXPECT_EQ(collection->keyType(), "Flow");
}

class Counter : public Pexa::Counter::PktCounter {
 public:
  Kiv::String name() const override { return "flow"; }
  const Kiv::Type& fwkType() const override { return Pexa::Counter::PktCounterCollectionHolder::kivType(); }
};

TEST(PktCounter, CountsPacketsAndBytesBeyond32Bits) {
  const auto counter = Kiv::makePtr<Counter>();
  EXPECT_EQ(counter->packets(), 0U);
  EXPECT_EQ(counter->bytes(), 0U);
  counter->countBytes(4294967295U);
  counter->countBytes(4294967295U);
  EXPECT_EQ(counter->packets(), 2U);
  EXPECT_EQ(counter->bytes(), 8589934590U);
}

}  // namespace

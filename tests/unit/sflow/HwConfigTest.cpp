#include <gtest/gtest.h>

#include "Sflow.h"

namespace Sflow {
namespace {

std::vector<Pavo::IntfId> interfaces(std::initializer_list<const char*> names) {
  std::vector<Pavo::IntfId> result;
  for (const char* name : names) result.emplace_back(name);
  return result;
}

class Watcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  explicit Watcher(const Kiv::Ptr<HwConfig>& watched) {
    notifierIs(watched);
    hasNotificationActiveIs(true);
  }
  void onAttribute(Kiv::AttributeId attribute) override { seen.push_back(attribute); }
  std::vector<Kiv::AttributeId> seen;
};

TEST(SflowHwConfig, AnnouncesASetOnlyWhenItChanges) {
  const auto config = Kiv::makePtr<HwConfig>("config");
  const auto watcher = Kiv::makePtr<Watcher>(config);
  config->ingressInterfacesIs(interfaces({"Ethernet2", "Ethernet1", "Ethernet2"}));
  config->ingressInterfacesIs(interfaces({"Ethernet1", "Ethernet2"}));
  config->egressInterfacesIs({});
  config->ingressInterfacesIs(interfaces({"Ethernet1", "Ethernet3"}));
  config->egressInterfacesIs(interfaces({"Ethernet4"}));
  EXPECT_EQ(watcher->seen,
            (std::vector<Kiv::AttributeId>{HwConfig::ingressInterfacesAttr, HwConfig::ingressInterfacesAttr,
                                           HwConfig::egressInterfacesAttr}));
  EXPECT_EQ(config->ingressInterfaceList(), interfaces({"Ethernet1", "Ethernet3"}));
  EXPECT_TRUE(config->egressInterfaces().has(Pavo::IntfId("Ethernet4")));
}

TEST(SflowHwConfig, IsReachedByName) {
  const Kiv::Type* type = Kiv::typeByName("Sflow::HwConfig");
  ASSERT_EQ(type, &HwConfig::kivType());
  const auto entity = Kiv::ptrCast<HwConfig>(type->construct({Kiv::Value("config")}));
  ASSERT_TRUE(entity);
  type->set(*entity, "enabled", true);
  type->set(*entity, "egressInterfaces", Kiv::Value::List{"Ethernet9", "Ethernet10"});
  EXPECT_TRUE(entity->enabled());
  EXPECT_EQ(type->get(*entity, "egressInterfaces"), Kiv::Value(Kiv::Value::List{"Ethernet10", "Ethernet9"}));
  EXPECT_EQ(type->attribute("egressInterfaces")->id, HwConfig::egressInterfacesAttr);
}

TEST(SflowHwConfig, RefusesAListWithAnythingButNamesAndKeepsWhatItHas) {
  const auto config = Kiv::makePtr<HwConfig>("config");
  config->ingressInterfacesIs(interfaces({"Ethernet1"}));
  const Kiv::Type& type = HwConfig::kivType();
  EXPECT_THROW(type.set(*config, "ingressInterfaces", "Ethernet2"), Kiv::ValueError);
  EXPECT_THROW(type.set(*config, "ingressInterfaces", Kiv::Value::List{"Ethernet2", 3}), Kiv::ValueError);
  EXPECT_THROW(
      type.set(*config, "ingressInterfaces", Kiv::Value::List{"a-name-that-is-too-long-for-an-interface"}),
      Kiv::ValueError);
  EXPECT_EQ(config->ingressInterfaceList(), interfaces({"Ethernet1"}));
}

TEST(SflowHwStatus, HoldsTheEthernetProtocol) {
  const auto status = Kiv::makePtr<HwStatus>("status");
  EXPECT_EQ(HwStatus::kivType().get(*status, "sflowEthProtocol"), Kiv::Value(0U));
  status->sflowEthProtocolIs(0x8130);
  EXPECT_EQ(HwStatus::kivType().get(*status, "sflowEthProtocol"), Kiv::Value(0x8130U));
}

}  // namespace
}  // namespace Sflow

#include "HoStatus.h"

#include <gtest/gtest.h>

namespace {

using FlowTracking::HoStatus;

class Watcher : public Kiv::PtrInterface::NotifieeConst {
 public:
  void onAttribute(Kiv::AttributeId attribute) override { told.push_back(attribute); }
  std::vector<Kiv::AttributeId> told;
};

TEST(HoStatusTest, TellsOfEachFlagOnlyWhenItChanges) {
  const auto status = Kiv::makePtr<HoStatus>("hoStatus");
  const auto watcher = Kiv::makePtr<Watcher>();
  watcher->notifierIs(status);
  watcher->hasNotificationActiveIs(true);
  EXPECT_FALSE(status->v4enabled() || status->v6enabled() || status->egressV4Enabled() ||
               status->egressV6Enabled());
  status->v6enabledIs(true);
  status->v6enabledIs(true);
  status->egressV4EnabledIs(true);
  status->v4enabledIs(false);
  EXPECT_EQ(watcher->told,
            (std::vector<Kiv::AttributeId>{HoStatus::v6enabledAttr, HoStatus::egressV4EnabledAttr}));
  EXPECT_TRUE(status->v6enabled() && status->egressV4Enabled());
  EXPECT_FALSE(status->v4enabled() || status->egressV6Enabled());
}

TEST(HoStatusTest, FlagsAreReachedByName) {
  HoStatus status("hoStatus");
  for (const std::string name : {"v4enabled", "v6enabled", "egressV4Enabled", "egressV6Enabled"}) {
    EXPECT_EQ(Kiv::attribute(status, name), Kiv::Value(false));
    Kiv::attributeIs(status, name, true);
    EXPECT_EQ(Kiv::attribute(status, name), Kiv::Value(true));
  }
  EXPECT_EQ(HoStatus::kivType().attribute("egressV6Enabled")->id, HoStatus::egressV6EnabledAttr);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "HoFlowConfig.h"
#include "HoFlowCounter.h"
#include "HoFlowStatus.h"
#include "HoStatus.h"
#include "HosStateCounter.h"
#include "RecordTypes.h"

namespace {

using FlowTracking::HoFlowConfig;
using FlowTracking::HoFlowCounter;
using FlowTracking::HoFlowStatus;
using FlowTracking::HosStateCounter;
using FlowTracking::HoStatus;

TEST(ContainerPaths, AreTheAgreedOnes) {
  EXPECT_EQ(HoFlowStatus::mountPath("sampled"), "flowtracking/sampled/hwOffload/status");
  EXPECT_EQ(HoFlowConfig::mountPath("sampled"), "flowtracking/sampled/hwOffload/config");
  EXPECT_EQ(HosStateCounter::mountPath("sampled"), "flowtracking/sampled/hwOffload/counter/status");
  EXPECT_EQ(HoFlowCounter::mountPath("sampled", "hfc"), "flowtracking/sampled/hwOffload/counter/hfc");
}

struct Expected {
  std::string type;
  std::string collection4;
  std::string record4;
  std::string collection6;
  std::string record6;
};
class ContainerTypes : public testing::TestWithParam<Expected> {};

TEST_P(ContainerTypes, AreBuiltByNameFromTheirPath) {
  FlowTracking::recordTypesRegister();
  const Kiv::Type* type = Kiv::typeByName(GetParam().type);
  ASSERT_NE(type, nullptr);
  const auto container = Kiv::ptrCast<Quell::Container>(type->construct({Kiv::Value("a/path")}));
  ASSERT_TRUE(container);
  EXPECT_EQ(container->name(), "a/path");
  EXPECT_EQ(&container->fwkType(), type);
  const auto maps = container->collections();
  ASSERT_EQ(maps.size(), 2U);
  EXPECT_EQ(maps[0]->name(), GetParam().collection4);
  EXPECT_EQ(maps[0]->type().name, GetParam().record4);
  EXPECT_EQ(maps[1]->name(), GetParam().collection6);
  EXPECT_EQ(maps[1]->type().name, GetParam().record6);
}

INSTANTIATE_TEST_SUITE_P(
    All, ContainerTypes,
    testing::Values(Expected{"FlowTracking::HoFlowConfig", "hoIpFlowConfig", "FlowTracking::HoIpFlowConfig",
                             "hoIp6FlowConfig", "FlowTracking::HoIp6FlowConfig"},
                    Expected{"FlowTracking::HoFlowStatus", "hoIpFlowStatus", "FlowTracking::HoIpFlowStatus",
                             "hoIp6FlowStatus", "FlowTracking::HoIp6FlowStatus"},
                    Expected{"FlowTracking::HoFlowCounter", "hoIpFlowCounter",
                             "FlowTracking::HoIpFlowCounter", "hoIp6FlowCounter",
                             "FlowTracking::HoIp6FlowCounter"},
                    Expected{"FlowTracking::HosStateCounter", "hosStateIpCounter",
                             "FlowTracking::HosStateCounterEntry", "hosStateIp6Counter",
                             "FlowTracking::HosStateCounterEntry"}),
    [](const auto& testInfo) { return testInfo.param.type.substr(testInfo.param.type.rfind(':') + 1); });

TEST(RecordTypes, RegisteringAgainChangesNothing) {
  FlowTracking::recordTypesRegister();
  const auto before = Kiv::registeredTypes().size();
  FlowTracking::recordTypesRegister();
  EXPECT_EQ(Kiv::registeredTypes().size(), before);
  const Kiv::Type* type = Kiv::typeByName("FlowTracking::HoStatus");
  ASSERT_NE(type, nullptr);
  EXPECT_TRUE(Kiv::ptrCast<HoStatus>(type->construct({Kiv::Value("hoStatus")})));
}

}  // namespace

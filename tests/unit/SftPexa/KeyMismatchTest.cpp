// A record is stored under its own key only.
#include "StateMachineFixture.h"

namespace SampledFlowTracker {
namespace {

template <class Domain>
class KeyMismatchDeathTest : public StateMachineTest<Domain> {
 protected:
  static std::string expected(const std::string& place, const std::string& internal, const std::string& key) {
    std::string text = "In \"into( " + place +
                       " )\" the value inserted in the into statement has internal key: " + internal +
                       ", but the key specified in the into is: " + key;
    std::string pattern;
    for (const char letter : text) {
      if (std::string_view("()[].|+*?{}^$\\").find(letter) != std::string_view::npos) pattern += '\\';
      pattern += letter;
    }
    return pattern;
  }
};
TYPED_TEST_SUITE(KeyMismatchDeathTest, Families);

TYPED_TEST(KeyMismatchDeathTest, StopsTheProcessAndNamesBothKeys) {
  this->start();
  using Names = typename TestFixture::Texts;
  typename TestFixture::Status status;
  status.key = this->key(1);
  EXPECT_DEATH(this->outputs().status.insert("", Names::kStatusPlace, this->key(2), status),
               this->expected(TestFixture::kV4 ? "hoFlowStatus.hoIpFlowStatus[ key ]"
                                               : "hoFlowStatus.hoIp6FlowStatus[ key ]",
                              this->key(1).str(), this->key(2).str()));
  typename TestFixture::Counter counter;
  counter.key = this->flow(1);
  EXPECT_DEATH(this->outputs().counter.insert("", Names::kFlowCounterPlace, this->flow(2), counter),
               this->expected(TestFixture::kV4 ? "hoFlowCounter.hoIpFlowCounter[ key.ipFlowKey ]"
                                               : "hoFlowCounter.hoIp6FlowCounter[ key.ipFlowKey ]",
                              this->flow(1).str(), this->flow(2).str()));
  EXPECT_DEATH(this->outputs().counter.refresh("", Names::kCopyPlace, this->flow(2),
                                               typename TestFixture::Counter(), counter),
               this->expected(TestFixture::kV4 ? "hoFlowCounter.hoIpFlowCounter[ key ]"
                                               : "hoFlowCounter.hoIp6FlowCounter[ key ]",
                              this->flow(1).str(), this->flow(2).str()));
  FlowTracking::HosStateCounterEntry entry;
  entry.key = HoFlowState::inHardware;
  EXPECT_DEATH(
      this->outputs().stateCounter.insert("", Names::kStateCounterPlace, HoFlowState::overflow, entry),
      this->expected(TestFixture::kV4 ? "hosStateCounter.hosStateIpCounter[ stateKey ]"
                                      : "hosStateCounter.hosStateIp6Counter[ stateKey ]",
                     "2", "3"));
}

}  // namespace
}  // namespace SampledFlowTracker

#include <gtest/gtest.h>
#include <spdlog/sinks/ostream_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <sstream>

#include "Mirro.h"

namespace Mirro {
namespace {

class PlainMounter : public Mounter {
 public:
  using Mounter::Mounter;
  static const Kiv::Type& kivType() {
    static const Kiv::Type type = Kiv::TypeBuilder<PlainMounter>("PlainMounter").build();
    return type;
  }
  const Kiv::Type& fwkType() const override { return kivType(); }
  void doMountsComplete(const Kiv::Ptr<EntityManager>&) override { ++completions; }
  int completions = 0;
};

TEST(Mounter, PassesCompletionOn) {
  const auto mounter = Kiv::makePtr<PlainMounter>("m");
  mounter->doMirroMountsComplete({});
  EXPECT_EQ(mounter->completions, 1);
}

TEST(Mounter, HasItsNameAndItsNotifiees) {
  const auto mounter = Kiv::makePtr<PlainMounter>("SampledFlowTracker");
  EXPECT_EQ(mounter->name(), "SampledFlowTracker");
  EXPECT_NE(mounter->notifieeList(), nullptr);
}

TEST(Mounter, LogsEachFailureOnALineOfItsOwn) {
  std::ostringstream out;
  const auto former = spdlog::default_logger();
  spdlog::set_default_logger(
      std::make_shared<spdlog::logger>("test", std::make_shared<spdlog::sinks::ostream_sink_mt>(out)));
  const auto mounter = Kiv::makePtr<PlainMounter>("plugin");
  mounter->handleMountStatus({{{Mount("a/b", "T", "w"), "there is no entity at this path"},
                               {Mount("c", "U", "rc"), "the type U is not known"}}});
  spdlog::set_default_logger(former);
  EXPECT_NE(
      out.str().find("plugin: cannot mount \"a/b\" as T with flags \"w\": there is no entity at this path\n"),
      std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("plugin: cannot mount \"c\" as U with flags \"rc\": the type U is not known\n"),
            std::string::npos);
}

}  // namespace
}  // namespace Mirro

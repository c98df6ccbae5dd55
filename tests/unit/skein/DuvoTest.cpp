#include "Duvo.h"

#include <gtest/gtest.h>

#include "RingThings.h"

namespace Duvo {
namespace {

using namespace TestSupport;

class RecordingSink : public Kiv::TraceSink {
 public:
  RecordingSink() { Kiv::traceSinkIs(this); }
  ~RecordingSink() override { Kiv::traceSinkIs(nullptr); }
  void write(const Kiv::TraceRecord& record) override {
    text += std::string(record.handle) + ' ' + std::to_string(record.level) + ' ' + std::string(record.file) +
            ':' + std::to_string(record.line) + ' ' + std::string(record.function) + ' ' +
            std::string(record.text);
  }
  std::string text;
};

TEST(SkeinConverter, FormsATextOnceForBothChannels) {
  RingThings things;
  Skein::TraceRing ring(things.file());
  RecordingSink sink;
  const Kiv::TraceHandle handle("DuvoTest", 0);
  SkeinConverter converter;
  converter << "Pkt" << 7 << ": "
            << "No flow status";
  converter.toSkein(ring, kPacket, "web");
  converter.toText(Kiv::TraceHelper(handle, 0, "a.cpp", 3, "f"));

  Skein::TraceReader reader(things.file());
  Skein::TraceRecord record;
  ASSERT_TRUE(reader.next(record));
  EXPECT_EQ(record.text, "Sft Pkt7: No flow status");
  EXPECT_EQ(record.filter, "web");
  EXPECT_EQ(sink.text, "DuvoTest 0 a.cpp:3 f Pkt7: No flow status");
}

}  // namespace
}  // namespace Duvo

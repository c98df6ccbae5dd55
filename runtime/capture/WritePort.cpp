#include "capture/WritePort.h"

namespace Capture {

void WritePort::transmit(const Pavo::Pkt& pkt, double now) {
  if (writer_.write(pkt, now)) {
    countOut(pkt);
  } else {
    ++counts_.dropsOut;
    if (error_.empty()) error_ = writer_.error();
  }
}

void WritePort::flush() {
  if (!writer_.flush() && error_.empty()) error_ = writer_.error();
}

}  // namespace Capture

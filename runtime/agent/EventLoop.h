// The agent's one thread. A turn of the loop: a burst of packets from each port, then a slice of every piece
// of work that is due, then descriptors and signals. When a turn brought no packets and no work is due, the
// loop sleeps until a descriptor becomes readable or something becomes due.
//
// Captures are not replayed before the agent has settled: before the work that its start left due is done,
// and the changes of shared tables that had come by then are told. What was wanted before the start is in
// place when the first replayed packet comes, however fast it comes. Live ports are served at once.
//
// Neighbours: PatchPanel.h has the packets, Work.h the work; control socket and signals come through the
// io_context.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "AgentPorts.h"
#include "LoopSlices.h"
#include "PatchPanel.h"
#include "Work.h"

namespace asio {
class io_context;
}

namespace Pexa {

class EventLoop {
 public:
  // While packets keep coming, descriptors are looked at every so many turns.
  static constexpr unsigned kTurnsPerLook = 16;
  // Seconds that a piece of work may take in a turn that brought a full burst, behind which more packets
  // wait; in one that brought fewer; and in one that brought none. A full burst from live ports takes some
  // 150e-6, so that work leaves the packets nearly all of a processor that has no more than enough for them.
  static constexpr double kBehindSlice = 30e-6;
  static constexpr double kBusySlice = 200e-6;
  static constexpr double kIdleSlice = 1e-3;
  static constexpr double kLongestSleep = 1.0;  // seconds; bounds what a step of the system's clock can do

  // All that is referred to must outlive the loop.
  EventLoop(asio::io_context& io, AgentPorts& ports, PatchPanel& panel);
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Adds a piece of work, behind those that are there. REQUIRES: it outlives the loop.
  void workIs(Work* work);

  // To be called once. Runs until stop(), or, if so asked, until no capture is being replayed and no work is
  // left. REQUIRES: every port is open.
  void run(bool untilEnd);
  // Ends run() after the present turn. May be called from within a turn.
  void stop() { stopped_ = true; }

  // Of rounds that brought packets ("packets"), of each piece of work by its name, and of what handlers of
  // descriptors did meanwhile ("control"); an idle loop's handlers note theirs themselves.
  LoopSlices& slices() { return slices_; }
  const LoopSlices& slices() const { return slices_; }

 private:
  class Waits;
  struct DueWork {
    Work* work;
    LoopSlices::Kind kind;
  };
  bool runDueWork(double slice);
  double slice(std::size_t packets) const;
  void flush();
  bool unfinished() const;
  void settle();
  bool atEnd();
  void lookAtDescriptors();
  void sleep();

  asio::io_context& io_;
  AgentPorts& ports_;
  PatchPanel& panel_;
  LoopSlices slices_;
  const LoopSlices::Kind packetSlices_ = slices_.kindIs("packets");
  const LoopSlices::Kind controlSlices_ = slices_.kindIs("control");
  std::vector<DueWork> work_;
  std::unique_ptr<Waits> waits_;
  bool stopped_ = false;
  bool settled_ = false;
  bool capturesEnded_ = false;
};

}  // namespace Pexa

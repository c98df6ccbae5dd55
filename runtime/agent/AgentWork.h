// The agent's own work between bursts: sFlow export, the status of its ports, and shared
// tables.
#pragma once

#include "AgentPorts.h"
#include "Interface.h"
#include "Work.h"
#include "quell/SharedTables.h"
#include "sflow/SflowExporter.h"

namespace Pexa {

// Sends samples as they come together, and interface counters when they are due.
class ExportWork : public Work {
 public:
  explicit ExportWork(Sflow::SflowExporter& exporter) : exporter_(exporter) {}
  std::string_view name() const override { return "export"; }
  double next() const override { return exporter_.nextCounters(); }
  void run(double /*now*/, double /*slice*/) override { exporter_.countersDue(); }
  void flush() override { exporter_.flush(); }

 private:
  Sflow::SflowExporter& exporter_;
};

// Keeps the interface status directory as the ports are.
class PortStatusWork : public Work {
 public:
  static constexpr double kInterval = 1.0;  // seconds

  PortStatusWork(AgentPorts& ports, Kiv::Ptr<Interface::EthIntfStatusDir> dir)
      : ports_(ports), dir_(std::move(dir)) {}
  std::string_view name() const override { return "ports"; }
  double next() const override {
    const bool setBack = Kiv::System::currentTimeUtc() < looked_;  // the clock: else nothing for as long
    return setBack ? 0 : looked_ + kInterval;
  }
  void run(double now, double /*slice*/) override {
    ports_.statusInto(*dir_);
    looked_ = now;
  }

 private:
  AgentPorts& ports_;
  Kiv::Ptr<Interface::EthIntfStatusDir> dir_;
  double looked_ = -kInterval;
};

// Tells reactors what other processes changed in shared tables, and wakes those who watch ours.
class TableWork : public Work {
 public:
  explicit TableWork(Quell::SharedTables& tables) : tables_(tables) {}
  std::string_view name() const override { return "tables"; }
  double next() const override { return pending_ ? 0 : kNever; }
  // Delivers a slice of the changes; the packets get their turn before the next one.
  void run(double now, double slice) override;
  void flush() override { tables_.flush(); }
  int descriptor() const override { return tables_.descriptor(); }
  void readable() override { pending_ = true; }
  bool unfinished() const override { return pending_; }

 private:
  Quell::SharedTables& tables_;
  bool pending_ = true;  // what came before the loop did
};

}  // namespace Pexa

// Both trace channels, written down instead of written out.
#pragma once

#include <string>
#include <vector>

#include "KivTrace.h"
#include "Skein.h"

namespace TestSupport {

// Replaces the process's text sink while it lives, and switches a handle's levels on up to `level`; -1: none.
class RecordingText : public Kiv::TraceSink {
 public:
  explicit RecordingText(std::string handle, int level = 9)
      : handle_(std::move(handle)), former_(Kiv::traceSinkIs(this)) {
    levelIs(level);
  }
  ~RecordingText() override {
    Kiv::TraceHandle::levelIs(handle_, -1);
    Kiv::traceSinkIs(former_);
  }
  RecordingText(const RecordingText&) = delete;
  RecordingText& operator=(const RecordingText&) = delete;

  void levelIs(int level) { Kiv::TraceHandle::levelIs(handle_, level); }
  void write(const Kiv::TraceRecord& record) override {
    texts.emplace_back(record.text);
    levels.push_back(record.level);
  }
  std::vector<std::string> texts;
  std::vector<unsigned> levels;

 private:
  std::string handle_;
  Kiv::TraceSink* former_;
};

// Replaces the process's ring-buffer trace while it lives. Wants packets' records unless told otherwise.
class RecordingRing : public Skein::TraceHandle {
 public:
  struct Record {
    std::string text;
    std::string filter;
    Skein::Volume volume;
  };
  RecordingRing() : former_(Skein::agentTraceHandleIs(this)) { packetsWanted(true); }
  ~RecordingRing() override { Skein::agentTraceHandleIs(former_); }

  // Events are always wanted.
  void packetsWanted(bool wanted) {
    volumesIs(Skein::volumeBit(Skein::Volume::event) |
              (wanted ? Skein::volumeBit(Skein::Volume::packet) : 0));
  }
  // As when there is no trace file.
  void close() { volumesIs(0); }
  void write(const Skein::CallSite& site, std::string_view text, std::string_view filter) override {
    records.push_back({std::string(text), std::string(filter), site.volume()});
  }
  void categoryLevelIs(std::string_view, int) override {}
  std::vector<std::string> texts() const {
    std::vector<std::string> result;
    for (const Record& record : records) result.push_back(record.text);
    return result;
  }
  std::vector<Record> records;

 protected:
  bool isEnabled(const Skein::CallSite&, bool) const override { return true; }

 private:
  Skein::TraceHandle* former_;
};

}  // namespace TestSupport

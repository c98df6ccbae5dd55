// One output of the state machine: the writer of its table, and the reconciliation of what an earlier run
// left in it.
//
// A table that is not empty at the start is reconciled: while the restarted statements write their entries,
// the keys they write are noted as seen; then, in the output's turn, a walk over the table deletes every
// entry that was not seen.
//
//   state                     entered                                  left
//   not reconciling           the table was empty at the start         its turn has come: ready
//   collecting                the table was not                        its turn has come: scanning
//   scanning                  a run of the deletion scan               table's end: ready;  yield: bookmarked
//   bookmarked                the scan gave way                        its task runs: scanning
//   ready                     for good
//
// U1  A key is noted as seen exactly when it is written (inserted or deleted) while the output is
// reconciling. U2  The outputs become ready in the order of kReadyChain. U3  Each run of the scan passes at
// least one entry, so it always ends. U4  A run that does not come from the output's task passes one entry
// and hands over to the task; from then on only the
//     task goes on with the scan.
//
// Neighbours: Reconciliation.cpp has the handler's steps; OutputTables.h what is written to; Statements.h who
// writes. Threading: the agent's event thread.
#pragma once

#include "KeyCheck.h"
#include "OutputKey.h"
#include "OutputTables.h"
#include "OwnedTask.h"
#include "Place.h"
#include "Quell.h"
#include "SmFrame.h"

namespace SampledFlowTracker {

// What does not depend on the table.
class OutputBase {
 public:
  OutputBase(OutputId id, SmFrame& frame) : frame_(frame), id_(id) {}
  virtual ~OutputBase() = default;
  OutputBase(const OutputBase&) = delete;
  OutputBase& operator=(const OutputBase&) = delete;

  OutputId id() const { return id_; }
  bool reconciling() const { return reconciling_; }
  bool useBookmark() const { return useBookmark_; }
  bool ready() const { return frame_.outputState() && frame_.outputState()->outputReady(id_); }
  // What the deletion scan has looked at so far, and what of it it deleted.
  std::uint64_t reconciled() const { return reconciled_; }
  std::uint64_t reconciliationDeletions() const { return reconciliationDeletions_; }
  // Stores and deletions that the table did not take; SmFrame counts those of all outputs.
  std::uint64_t storesFailed() const { return storesFailed_; }
  OwnedTask& reconciliationTask() { return task_; }
  const OwnedTask& reconciliationTask() const { return task_; }

  // Creates the reconciliation task.
  void taskIs();
  // Decides whether there is something to reconcile.
  void reconcilingDecide();
  // The output's turn may have come: starts, goes on with, or ends its reconciliation (steps in
  // Reconciliation.cpp).
  void inputReady();

  virtual std::size_t seenCount() const = 0;
  virtual Kiv::String bookmarkText() const = 0;
  virtual void seenDelAll() = 0;

 protected:
  // A run of the deletion scan.
  struct Run {
    std::uint32_t processed = 0;
    std::uint32_t deletions = 0;
    bool ended = false;  // the table's end was reached
  };
  virtual Run deletionScan() = 0;
  virtual std::size_t entries() const = 0;
  // Makes room for so many keys before packets come: a set that grows to a million later stops them for a
  // tenth of a second.
  virtual void seenReserve(std::size_t keys) = 0;
  virtual void bookmarkReset() = 0;
  // Whether a run that has come this far gives way before its next entry.
  bool givesWay(const Run& run) const;

  SmFrame& frame_;
  bool reconciling_ = false;
  bool useBookmark_ = false;
  std::uint64_t storesFailed_ = 0;

 private:
  bool predecessorsReady() const;
  bool handedOver() const;
  void yieldScan(const Run& run);
  void endScan(const Run& run);

  OutputId id_;
  OwnedTask task_;
  std::uint64_t reconciled_ = 0;
  std::uint64_t reconciliationDeletions_ = 0;
};

template <class OutputTable>
class Output : public OutputBase {
 public:
  using Table = OutputTable;
  using Key = typename Table::Key;
  using KeyType = OutputKey<Table::kId, Key>;

  Output(Table table, SmFrame& frame) : OutputBase(Table::kId, frame), table_(std::move(table)) {}

  const Table& table() const { return table_; }
  const KeyType& bookmark() const { return bookmark_; }

  // The seen set.
  void seenIs(const KeyType& key) { seen_.insert(key); }
  void seenDel(const KeyType& key) { seen_.erase(key); }
  void seenDelAll() override { seen_ = {}; }  // with its memory: it is not needed again
  bool seenHas(const KeyType& key) const { return seen_.has(key); }
  std::size_t seenCount() const override { return seen_.size(); }
  Kiv::String bookmarkText() const override { return bookmark_.str(); }

  // So many entries are about to come; false: to be called again. Where the table cannot be written, the
  // first of them will tell.
  bool expect(std::size_t entries) {
    try {
      return table_.expect(entries);
    } catch (const Quell::TableError&) {
      return true;
    }
  }
  // The writer. Each notes the key as seen while the output reconciles (U1), traces, and writes. The place is
  // the statement's own name of the entry: "hoFlowStatus.hoIpFlowStatus[ key ]"; the handler is who traces.
  template <class Value>
  void insert(std::string_view handler, const Place& place, const Key& key, const Value& value) {
    if (reconciling_) seenIs(KeyType(key));
    frame_.trace()(SmTrace::kStatement, handler, place.insertingValue, key, value);
    FlowTracking::assertKeyMatches(place.name, value, key);
    store([&] { table_.insert(value); });
  }
  void insert(std::string_view handler, const Place& place, const Key& key) {
    if (reconciling_) seenIs(KeyType(key));
    frame_.trace()(SmTrace::kStatement, handler, place.inserting, key);
    table_.insert(key);
  }
  // Inserts over what is known to be stored; the table is left alone when nothing changed.
  template <class Value>
  void refresh(std::string_view handler, const Place& place, const Key& key, const Value& stored,
               const Value& value) {
    if (!(value == stored)) return insert(handler, place, key, value);
    if (reconciling_) seenIs(KeyType(key));
    frame_.trace()(SmTrace::kStatement, handler, place.insertingValue, key, value);
  }
  void erase(std::string_view handler, const Place& place, const Key& key) {
    if (reconciling_) seenIs(KeyType(key));
    frame_.trace()(SmTrace::kStatement, handler, place.deleting, key);
    store([&] { table_.erase(key); });
  }

 protected:
  // A table that is too damaged to be counted may hold anything: it is looked through.
  std::size_t entries() const override {
    try {
      return table_.size();
    } catch (const Fenn::CorruptionDetectedException& damage) {
      table_.damaged(damage.what());
      return 1;
    }
  }
  void seenReserve(std::size_t keys) override { seen_.reserve(keys); }
  void bookmarkReset() override { bookmark_ = KeyType(); }
  Run deletionScan() override {
    Run run;
    try {
      walk(run);
    } catch (const Fenn::CorruptionDetectedException& damage) {
      table_.damaged(damage.what());  // the walk ends here
      run.ended = true;
    }
    return run;
  }

 private:
  // Writes to the table; what it throws for want of room or rights, or for damage, is reported, the statement
  // goes on.
  template <class Write>
  void store(const Write& write) {
    try {
      write();
    } catch (const Quell::TableError& error) {
      ++storesFailed_;
      frame_.storeFailed(error.what());
    } catch (const Fenn::CorruptionDetectedException& damage) {
      table_.damaged(damage.what());
    }
  }
  void walk(Run& run) {
    Key key{};
    bool more = useBookmark_ ? table_.atOrAfter(bookmark_.k0, key) : table_.first(key);
    while (more) {
      if (givesWay(run)) {
        bookmark_ = KeyType(key);
        return;
      }
      if (!seenHas(KeyType(key))) {
        store([&] { table_.erase(key); });
        ++run.deletions;
      }
      ++run.processed;
      more = table_.after(key, key);
    }
    run.ended = true;
  }

  Table table_;
  Kiv::Set<KeyType, SeenHash<Table::kId>> seen_;
  KeyType bookmark_;
};

}  // namespace SampledFlowTracker

#include "quell/TableMetrics.h"

#include <sys/stat.h>

#include "quell/TableFile.h"

namespace Quell {
namespace {

class Collections {
 public:
  Collections(const SharedTables& tables, Metrics::Snapshot& snapshot)
      : tables_(tables),
        records_(snapshot.gauge("pexa_table_records", "Records of a shared table's collection.")),
        bytes_(snapshot.gauge("pexa_table_bytes", "Memory that the file of a collection takes.")),
        torn_(snapshot.counter(
            "pexa_table_torn_reads_total",
            "Looks by the agent at what another process was changing, which it took again.")),
        corrupt_(snapshot.counter("pexa_table_corrupt_reads_total",
                                  "Reads of a collection by the agent that met damage.")),
        overruns_(snapshot.counter("pexa_table_overruns_total",
                                   "Times that the agent was too far behind the changes of a collection, and "
                                   "looked at all of it.")) {}

  void add(const std::string& path, const MapBase& map) {
    const Metrics::Labels labels{{"table", path}, {"collection", map.name()}};
    try {
      records_.add(labels, map.size());
    } catch (const Fenn::CorruptionDetectedException&) {
      // Counted by the table as a read of damage.
    }
    struct stat file {};
    constexpr std::uint64_t kBlock = 512;
    if (::fstat(map.table()->file()->descriptor(), &file) == 0)
      bytes_.add(labels, static_cast<std::uint64_t>(file.st_blocks) * kBlock);
    torn_.add(labels, map.table()->file()->tornReads());
    corrupt_.add(labels, map.table()->damages());
    overruns_.add(labels, tables_.overruns(map));
  }

 private:
  const SharedTables& tables_;
  Metrics::Family& records_;
  Metrics::Family& bytes_;
  Metrics::Family& torn_;
  Metrics::Family& corrupt_;
  Metrics::Family& overruns_;
};

}  // namespace

void metricsInto(const SharedTables& tables, Metrics::Snapshot& snapshot) {
  Collections collections(tables, snapshot);
  for (const Kiv::Ptr<Container>& container : tables.mounted()) {
    for (const MapBase* map : container->collections()) collections.add(container->name(), *map);
  }
}

}  // namespace Quell

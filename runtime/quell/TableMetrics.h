// The numbers of the mounted shared tables.
#pragma once

#include "Metrics.h"
#include "quell/SharedTables.h"

namespace Quell {

// pexa_table_..., for each collection. One whose entries are too damaged to be counted has no number of them.
void metricsInto(const SharedTables& tables, Metrics::Snapshot& snapshot);

}  // namespace Quell

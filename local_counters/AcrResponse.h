// Writes a collection of counters into the agent's counter display.
#pragma once

#include "Cliprint.h"

namespace Pexa::Counter {

// One member a record of counterCollection, in the map's order, into the object that the printer has open:
//   "name": {"packets": 3, "octets": 180}
// CollectionPtr is a pointer of any kind.
template <class CollectionPtr>
void acrResponse(const CollectionPtr& collection, cliprint::PrinterV2* printer) {
  const auto& counters = collection->counterCollection();
  for (const auto* entry = counters.first(); entry != nullptr; entry = counters.after(entry->key())) {
    printer->memberName(entry->value->name());
    printer->beginObject();
    printer->memberName("packets");
    printer->value(entry->value->packets());
    printer->memberName("octets");
    printer->value(entry->value->bytes());
    printer->endObject();
  }
}

}  // namespace Pexa::Counter

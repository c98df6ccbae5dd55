// The check before a record is inserted: its own key must be the key of the table's entry that was meant.
#pragma once

#include <string_view>

#include "FlowKey.h"

namespace FlowTracking {

// Writes the assertion text and stops the process.
[[noreturn]] void stopOnKeyMismatch(std::string_view table, const Kiv::String& internalKey,
                                    const Kiv::String& key);

// Stops the process when the keys differ. The table is named as the statement has it:
// "hoFlowStatus.hoIpFlowStatus[ key ]".
template <class Record>
void assertKeyMatches(std::string_view table, const Record& record, const typename Record::Key& key) {
  if (!(record.key == key)) stopOnKeyMismatch(table, valueToStrep(record.key), valueToStrep(key));
}

}  // namespace FlowTracking

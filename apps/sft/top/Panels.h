// The panels as tables: a model's flows, samplings, reasons and ports.
#pragma once

#include "top/PanelTable.h"
#include "top/TopModel.h"

namespace Sft::Top {

// At most `most` rows of a panel, from a row on, for so many columns of the screen.
PanelTable panelTable(const TopModel& model, Panel panel, std::size_t from, std::size_t most,
                      std::size_t width);

}  // namespace Sft::Top

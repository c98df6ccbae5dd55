// A model drawn as a frame: pure, so that every frame can be told exactly.
//
//   title        run directory, interval, time
//   families     the budget in use, a bar for each family
//   traffic      through the ports, and samples; or why no agent answers, or which table is damaged
//   tabs         the panels; how many rows, in which order, filtered by what
//   heading, body
//   others       on a large screen, the panels that are not chosen
//   footer       keys, or the filter that is being typed
//
// A small screen leaves out traffic, footer, families, title and heading, in this order.
#pragma once

#include "top/Bars.h"
#include "top/Grid.h"
#include "top/TopModel.h"

namespace Sft::Top {

Grid frame(const TopModel& model, Size size, BarKind bars);

// How many rows of the panel a frame of this size shows.
std::size_t pageOf(const TopModel& model, Size size);

}  // namespace Sft::Top

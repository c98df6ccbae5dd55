// The agent's task scheduler: tasks by name and priority that give way when asked to.
#pragma once

#include "Kiv.h"

namespace Olt {

class TaskScheduler : public Kiv::Entity {
 public:
  using Kiv::Entity::Entity;
};

}  // namespace Olt

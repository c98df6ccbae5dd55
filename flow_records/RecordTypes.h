// The entity types of this room, made known to the entity framework: HoFlowConfig, HoFlowStatus,
// HoFlowCounter, HosStateCounter, each built from its path, and HoStatus, built from its name.
#pragma once

namespace FlowTracking {

// Registers the types for the time that the calling program or library stays loaded. A type that another
// library of this process has registered is left to it; calling again does nothing. To be called before a
// table is mounted or a type is looked up by name.
void recordTypesRegister();

}  // namespace FlowTracking

// The entity framework: counted references, entities with attributes and reactors, type records, maps whose
// walks survive changes, the UTC clock and text traces.
#pragma once

#include "KivEntity.h"
#include "KivMap.h"
#include "KivNotifiee.h"
#include "KivPtr.h"
#include "KivString.h"
#include "KivSystem.h"
#include "KivTrace.h"
#include "KivType.h"
#include "KivValue.h"

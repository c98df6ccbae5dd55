// The forwarding agent, as its plugins see it: ports, packets, pipelines, counters, plugins.
#pragma once

#include "PexaCounter.h"
#include "PexaPacket.h"
#include "PexaPipeline.h"
#include "PexaPlugin.h"
#include "PexaPort.h"

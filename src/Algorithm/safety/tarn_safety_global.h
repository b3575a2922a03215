// Collision and safety: the subsystem's module state. The capsule end points
// (PJA, PJB, PLA, PLB, PJA_min, PJB_max) and the working copy of the tool spheres are
// exported through include/libalgo_safety.h; the envelope as the user set it, the fence
// and the payload snapshot are reached only through their functions.
//
// All of it is scratch of the single thread that runs the checks, rewritten by every
// check, with no lock.
#pragma once

#include "libalgo_model.h"
#include "libalgo_safety.h"

// The tool envelope as set by libalgo_set_tool_envelope; survives until set again.
extern ToolSphere toolModel[LIBALGO_TOOL_SPHERES];

// The fence as last given to libalgo_set_fence_para, accepted or not.
extern FencePara fence_para;

namespace tarn {

// The payload as the last check found it; it takes no part in the geometry.
extern PayloadCfg _pay_load;

}  // namespace tarn

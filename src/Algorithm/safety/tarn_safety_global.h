// Collision and safety: the subsystem's module state. The capsule end points
// (PJA, PJB, PLA, PLB, PJA_min, PJB_max), the working copy of the tool spheres, the
// envelope as the user set it, the fence and the payload snapshot are all exported
// through include/libalgo_safety.h.
//
// All of it is scratch of the single thread that runs the checks, rewritten by every
// check, with no lock.
#pragma once

#include "libalgo_model.h"
#include "libalgo_safety.h"

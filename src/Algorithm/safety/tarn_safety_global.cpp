// Collision and safety: definitions of the module state declared in tarn_safety_global.h
// and include/libalgo_safety.h. Capacities: four joint capsules and five tool spheres;
// up to five arm link capsules and one tool link capsule per tool sphere.
#include "Algorithm/safety/tarn_safety_global.h"

ToolSphere toolModel[LIBALGO_TOOL_SPHERES];
ToolSphere tool_spheres_para[LIBALGO_TOOL_SPHERES];

VEC3 PJA[LIBALGO_JOINT_POINTS];
VEC3 PJB[LIBALGO_JOINT_POINTS];
VEC3 PLA[LIBALGO_LINK_POINTS];
VEC3 PLB[LIBALGO_LINK_POINTS];
VEC3 PJA_min[LIBALGO_INSIDE_POINTS];
VEC3 PJB_max[LIBALGO_INSIDE_POINTS];

FencePara fence_para;

PayloadCfg _pay_load;

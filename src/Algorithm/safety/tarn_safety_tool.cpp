// Collision and safety: the tool envelope, up to five spheres in the flange frame that
// the self-collision and fence checks carry along with the arm.
#include <cmath>

#include "Algorithm/safety/tarn_safety_global.h"

namespace {

// A sphere of this radius or less marks an empty slot.
constexpr float kEmptySphereRadius = 1e-6f;

bool slot_valid(int index) { return index >= 0 && index < LIBALGO_TOOL_SPHERES; }

}  // namespace

int libalgo_set_tool_envelope(int index, ToolSphere sphere)
{
    if (!slot_valid(index)) return -1;
    toolModel[index] = sphere;
    return 0;
}

int libalgo_get_tool_envelope(int index, ToolSphere* sphere)
{
    if (!sphere || !slot_valid(index)) return -1;
    *sphere = toolModel[index];
    return 0;
}

int update_ToolSpheresModel(void)
{
    // Filled slots keep their place and an empty one keeps what it held before, while the
    // checks read the first `count` slots: an envelope is to be filled from slot 0 up, and
    // a hole hides the last sphere.
    int count = 0;
    for (int i = 0; i < LIBALGO_TOOL_SPHERES; ++i) {
        if (std::fabs(toolModel[i].r) > kEmptySphereRadius) {
            tool_spheres_para[i] = toolModel[i];
            ++count;
        }
    }
    return count;
}

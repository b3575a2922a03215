#include "simulator/sim_model.h"

#include <cmath>
#include <numbers>

namespace zk_sim {

namespace {

constexpr double h = std::numbers::pi / 2;
constexpr double kMaxJointAcc = 1000.0;  // degrees per second squared, every joint of every model

struct FamilyRule {
    const char* text;
    ArmFamily family;
    int dof;
};

// First hit wins, so a longer name comes before its prefix.
constexpr FamilyRule kFamilyRules[] = {
    {"AX61", ArmFamily::ax61, 6},     {"AX71", ArmFamily::ax71, 7},   {"AL64III", ArmFamily::al64_3, 6},
    {"AL64", ArmFamily::al64_2, 6},   {"LUM61", ArmFamily::lum61, 6}, {"LUM66", ArmFamily::lum66, 6},
    {"TOR77", ArmFamily::tor77, 7},   {"LUM67", ArmFamily::lum67, 6},
};

struct ForceRule {
    const char* text;
    ForceEdition force;
};

constexpr ForceRule kForceRules[] = {{"-B", ForceEdition::basic},
                                     {"-QF", ForceEdition::one_axis},
                                     {"-XFB", ForceEdition::integrated_six_axis},
                                     {"-XF", ForceEdition::six_axis}};

// Length of the last link by force edition: a sensor lengthens the flange. Editions a model
// isn't built with take the basic flange, so that every model text still gives an arm.
struct FlangeLengths {
    double basic, one_axis, six_axis, integrated;
};

struct FamilyGeometry {
    ArmFamily family;
    DhTable dh;  // last d filled from the flange lengths
    FlangeLengths flange;
    Joints max_pos, min_pos, max_speed;
};

// clang-format off
const FamilyGeometry kGeometry[] = {
    {ArmFamily::ax61,
     {{0.2405, 0, 0, 0.21, 0, 0}, {0, 0, 0.256, 0, 0, 0}, {0, h, 0, h, -h, h}, {0, h, h, 0, 0, 0}, false},
     {0.144, 0.152, 0.1725, 0.1612},
     {178, 130, 135, 178, 128, 360}, {-178, -130, -135, -178, -128, -360}, {180, 180, 225, 225, 225, 225}},
    {ArmFamily::ax71,
     {{0.2405, 0, 0.256, 0, 0.21, 0, 0}, {0, 0, 0, 0, 0, 0, 0}, {-h, h, -h, h, -h, h, 0}, {0, 0, 0, 0, 0, 0, 0}, true},
     {0.144, 0.152, 0.1725, 0.1612},
     {178, 130, 178, 135, 178, 128, 360}, {-178, -130, -178, -135, -178, -128, -360},
     {180, 180, 225, 225, 225, 225, 225}},
    {ArmFamily::al64_2,
     {{0.172, 0, 0, 0.405, 0, 0}, {0, -0.086, 0.38, 0.069, 0, 0}, {0, -h, 0, h, -h, -h}, {0, -h, h, 0, 2 * h, 2 * h}, false},
     {0.115, 0.123, 0.1435, 0.1322},
     {178, 178, 145, 178, 178, 360}, {-178, -178, -178, -178, -178, -360}, {180, 180, 225, 225, 225, 225}},
    {ArmFamily::al64_3,
     {{0.162, -0.0084, 0, 0.405, 0, 0}, {0, -0.086, 0.38, 0.069, 0, 0}, {0, -h, 0, h, -h, -h}, {0, -h, h, 0, 0, 0}, false},
     {0.115, 0.123, 0.1435, 0.115},
     {178, 178, 145, 178, 178, 360}, {-178, -178, -178, -178, -178, -360}, {180, 180, 225, 225, 225, 225}},
    {ArmFamily::lum61,
     {{0.1625, 0, 0, -0.05888, 0.11, 0}, {0, -0.086, 0.26, 0.24, 0, 0}, {0, -h, 0, 0, h, -h}, {0, -h, 0, h, 0, 0}, false},
     {0.0795, 0.0875, 0.108, 0.0967},
     {180, 180, 145, 140, 180, 180}, {-180, -180, -160, -140, -180, -180}, {180, 180, 225, 225, 225, 225}},
    {ArmFamily::lum66,
     {{0.136, 0, 0, -0.0585, 0.071, 0}, {0, -0.07, 0.148, 0.136, 0, 0}, {0, -h, 0, 0, h, -h}, {0, -h, 0, h, 0, 0}, false},
     {0.0707, 0.0707, 0.0707, 0.0707},
     {178, 110, 155, 178, 178, 360}, {-178, -170, -155, -178, -178, -360}, {225, 225, 225, 180, 180, 180}},
    {ArmFamily::tor77,
     {{0.218, 0, 0.28, 0, 0.2525, 0, 0}, {0, 0, 0, 0.04, -0.019, 0, 0.067}, {0, -h, h, h, -h, h, h}, {0, 0, 0, 0, 0, h, 0}, false},
     {0.0905, 0.0905, 0.0905, 0.0905},
     {172, 105, 172, 55, 172, 120, 172}, {-172, -105, -172, -170, -172, -90, -172}, {180, 180, 180, 180, 225, 225, 225}},
    {ArmFamily::lum67,
     {{0.1625, 0, 0, -0.0589, 0.11, 0}, {0, -0.086, 0.41, 0.38, 0, 0}, {0, -h, 0, 0, h, -h}, {0, -h, 0, h, 0, 0}, false},
     {0.0795, 0.0875, 0.108, 0.0967},
     {178, 135, 158, 178, 178, 360}, {-178, -178, -168, -178, -178, -360}, {180, 180, 225, 225, 225, 225}},
};
// clang-format on

double flange_length(const FlangeLengths& lengths, ForceEdition force)
{
    switch (force) {
    case ForceEdition::basic: return lengths.basic;
    case ForceEdition::one_axis: return lengths.one_axis;
    case ForceEdition::six_axis: return lengths.six_axis;
    case ForceEdition::integrated_six_axis: return lengths.integrated;
    }
    return lengths.basic;
}

}  // namespace

bool sim_model_from_product(const std::string& product, SimModel* model, std::string* reason)
{
    const FamilyRule* family = nullptr;
    for (const FamilyRule& rule : kFamilyRules)
        if (product.find(rule.text) != std::string::npos) {
            family = &rule;
            break;
        }
    if (family == nullptr) {
        *reason = "no known arm model in \"" + product + "\"";
        return false;
    }
    const ForceRule* force = nullptr;
    for (const ForceRule& rule : kForceRules)
        if (product.find(rule.text) != std::string::npos) {
            force = &rule;
            break;
        }
    if (force == nullptr) {
        *reason = "no force edition (-B, -QF, -XF, -XFB) in \"" + product + "\"";
        return false;
    }
    // A client copies at most 14 characters of the product text.
    constexpr size_t kProductCapacity = 14;
    if (product.size() > kProductCapacity) {
        *reason = "product text longer than 14 characters: \"" + product + "\"";
        return false;
    }
    for (const FamilyGeometry& geometry : kGeometry) {
        if (geometry.family != family->family) continue;
        model->product = product;
        model->family = family->family;
        model->force = force->force;
        model->dof = family->dof;
        model->dh = geometry.dh;
        model->dh.d[family->dof - 1] = flange_length(geometry.flange, force->force);
        model->max_pos = geometry.max_pos;
        model->min_pos = geometry.min_pos;
        model->max_speed = geometry.max_speed;
        model->max_acc.fill(0);
        for (int joint = 0; joint < family->dof; ++joint) model->max_acc[joint] = kMaxJointAcc;
        return true;
    }
    *reason = "no geometry for \"" + product + "\"";
    return false;
}

const char* sim_model_names()
{
    return "AX61, AX71, AL64, AL64III, LUM61, LUM66, LUM67 or TOR77, followed by -B, -QF, -XF or -XFB";
}

}  // namespace zk_sim

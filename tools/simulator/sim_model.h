// What the simulated arm is: the model and force edition it reports, and the geometry and
// limits that go with them. The values are the factory defaults of each model, so a host's
// own kinematics agrees with the poses the simulator reports.
#pragma once

#include <array>
#include <string>

namespace zk_sim {

// Seven joints at most; a six-axis arm leaves the last entry unused.
constexpr int kMaxJoints = 7;
using Joints = std::array<double, kMaxJoints>;

enum class ArmFamily { ax61, ax71, al64_2, al64_3, lum61, lum66, tor77, lum67 };
enum class ForceEdition { basic, one_axis, six_axis, integrated_six_axis };

// Denavit-Hartenberg rows, one per joint: lengths in metres, angles in radians. `standard`
// tells the link convention: standard DH when true, modified DH otherwise.
struct DhTable {
    std::array<double, kMaxJoints> d{};
    std::array<double, kMaxJoints> a{};
    std::array<double, kMaxJoints> alpha{};
    std::array<double, kMaxJoints> offset{};
    bool standard = false;
};

struct SimModel {
    std::string product;  // reported as "Product_version", e.g. "AX61-B"
    ArmFamily family = ArmFamily::ax61;
    ForceEdition force = ForceEdition::basic;
    int dof = 6;
    DhTable dh;
    Joints max_pos{};    // degrees
    Joints min_pos{};    // degrees
    Joints max_speed{};  // degrees per second
    Joints max_acc{};    // degrees per second squared
};

// Builds the model a product text names, by the same substring rules a client uses to
// recognise it ("AX61", "AL64III" before "AL64", "-XFB" before "-XF" ...). False, with a
// reason, for a text no client would recognise.
bool sim_model_from_product(const std::string& product, SimModel* model, std::string* reason);

// The product texts a user may ask for, for the usage text.
const char* sim_model_names();

}  // namespace zk_sim

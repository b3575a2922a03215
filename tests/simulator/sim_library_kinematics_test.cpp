// The simulator's poses are the library's own: its double-precision DH chain agrees with
// the library's closed-form forward kinematics of each arm family, over seeded random joints.
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "libalgo.h"
#include "sim_fixture.h"
#include "simulator/sim_kinematics.h"

namespace zk_sim_test {
namespace {

struct FamilyCase {
    const char* product;
    Matrix (*forward)(DH dh, const float* q, int what);
};

class LibraryKinematics : public ::testing::TestWithParam<FamilyCase> {};

// The library computes in single precision.
constexpr double kPositionTolerance = 1e-6;  // metres
constexpr double kRotationTolerance = 1e-5;

TEST_P(LibraryKinematics, FlangePoseAgreesWithTheLibrary)
{
    constexpr int kSamples = 200;
    const zk_sim::SimModel model = model_of(GetParam().product);
    DH dh{};
    for (int i = 0; i < model.dof; ++i) {
        dh.d[i] = static_cast<float>(model.dh.d[i]);
        dh.a[i] = static_cast<float>(model.dh.a[i]);
        dh.alpha[i] = static_cast<float>(model.dh.alpha[i]);
        dh.offset[i] = static_cast<float>(model.dh.offset[i]);
    }
    std::mt19937 generator(11);
    for (int sample = 0; sample < kSamples; ++sample) {
        zk_sim::Joints joints{};
        float radians[8] = {};
        for (int i = 0; i < model.dof; ++i) {
            joints[i] = std::uniform_real_distribution<double>(model.min_pos[i], model.max_pos[i])(generator);
            radians[i] = static_cast<float>(joints[i] * std::numbers::pi / 180);
        }
        const zk_sim::SimPose pose = zk_sim::sim_pose_of(model, joints);
        const Matrix flange = GetParam().forward(dh, radians, 0);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(pose.position[i], flange.data[i][3], kPositionTolerance) << sample;
        // Orientation: compare the rotation the Euler angles stand for with the library's.
        const double cx = std::cos(pose.euler[0]), sx = std::sin(pose.euler[0]);
        const double cy = std::cos(pose.euler[1]), sy = std::sin(pose.euler[1]);
        const double cz = std::cos(pose.euler[2]), sz = std::sin(pose.euler[2]);
        const double r[3][3] = {{cz * cy, cz * sy * sx - sz * cx, cz * sy * cx + sz * sx},
                                {sz * cy, sz * sy * sx + cz * cx, sz * sy * cx - cz * sx},
                                {-sy, cy * sx, cy * cx}};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) EXPECT_NEAR(r[i][j], flange.data[i][j], kRotationTolerance) << sample;
    }
}

INSTANTIATE_TEST_SUITE_P(Families, LibraryKinematics,
                         ::testing::Values(FamilyCase{"AX61-B", forward_kinematics_ax61},
                                           FamilyCase{"AX71-XF", forward_kinematics_ax71},
                                           FamilyCase{"AL64-B", forward_kinematics_al64_2},
                                           FamilyCase{"AL64III-QF", forward_kinematics_al64_3},
                                           FamilyCase{"LUM61-B", forward_kinematics_lum6},
                                           FamilyCase{"LUM66-B", forward_kinematics_lum6},
                                           FamilyCase{"TOR77-B", forward_kinematics_tor7},
                                           FamilyCase{"LUM67-XFB", forward_kinematics_lum6}),
                         [](const auto& info) {
                             std::string name = info.param.product;
                             std::erase(name, '-');
                             return name;
                         });

}  // namespace
}  // namespace zk_sim_test

// Round trips of the six-axis solvers: random joint vectors inside the limits give a
// target by forward kinematics; the solvers must find that vector again, or another one
// whose forward kinematics reproduces the target.
#include <gtest/gtest.h>

#include <cmath>

#include "ikine_test_support.h"

using namespace ikine_test;
using algo_test::property_cases;
using algo_test::Rng;

namespace {

class SixAxisRoundTrip : public ::testing::TestWithParam<SixAxisModel> {
protected:
    void SetUp() override { use_model(GetParam()); }
};

// The reference that made the target comes back, whole turns of joint 6 included. Next to
// a singularity the float target determines the joints only loosely: there any solution
// of the target will do.
TEST_P(SixAxisRoundTrip, OwnReferenceGivesItsVector)
{
    Rng rng(101 + GetParam().type);
    const int n = property_cases();
    int loose = 0;
    for (int i = 0; i < n; ++i) {
        float q[8], out[8] = {};
        random_joints(rng, q);
        const Pose target = tool_pose(q);
        const uint8_t flag = static_cast<uint8_t>(i % 2);  // quaternion and Euler angles in turn
        ASSERT_EQ(inverse_kinematics(q, target, out, flag), 0) << "case " << i;
        if (max_joint_diff(out, q) <= kJointTolerance) continue;
        ++loose;
        ASSERT_LT(jacobian_min_singular(q), kIllConditioned) << "case " << i;
        ASSERT_TRUE(reproduces(out, target)) << "case " << i;
    }
    EXPECT_LT(loose, n / 100 + 1);
}

// A reference off the target's vector still gives a solution of the target.
TEST_P(SixAxisRoundTrip, PerturbedReferenceReproducesTarget)
{
    Rng rng(202 + GetParam().type);
    const int n = property_cases();
    use_frames();
    for (int i = 0; i < n; ++i) {
        float q[8], ref[8] = {}, out[8] = {};
        random_joints(rng, q);
        for (int j = 0; j < 6; ++j) ref[j] = q[j] + rng.uniformf(-0.3f, 0.3f);
        const Pose target = tool_pose(q);
        const int rc = inverse_kinematics(ref, target, out, 0);
        ASSERT_EQ(rc, 0) << "case " << i;
        ASSERT_TRUE(reproduces(out, target)) << "case " << i;
    }
}

// Every row of the all-solutions form is a solution, the target's own vector among them;
// the rows are distinct configurations.
TEST_P(SixAxisRoundTrip, AllSolutionsReproduceTarget)
{
    Rng rng(303 + GetParam().type);
    const int n = property_cases();
    for (int i = 0; i < n; ++i) {
        float q[8];
        random_joints(rng, q);
        const Pose target = tool_pose(q);
        const zk_inverse_kinematics_all_solve_t all = inverse_kinematics_all(q, target, 0);
        ASSERT_EQ(all.result, 1) << "case " << i;
        ASSERT_GE(all.num, 2) << "case " << i;  // at least both wrists of the target's own arm
        if (GetParam().type == AX61) {
            ASSERT_EQ(all.num, 8) << "case " << i;  // reaching back over the shoulder is always possible
        }
        bool own = false;
        for (int r = 0; r < all.num; ++r) {
            ASSERT_TRUE(reproduces(all.q_solve[r], target)) << "case " << i << " row " << r;
            own = own || max_joint_diff(all.q_solve[r], q) <= kJointTolerance;
        }
        ASSERT_TRUE(own || jacobian_min_singular(q) < kIllConditioned) << "case " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Models, SixAxisRoundTrip, ::testing::ValuesIn(kSixAxisModels), model_name);

}  // namespace

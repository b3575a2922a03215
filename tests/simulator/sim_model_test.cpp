// The arm models the simulator can play, its kinematics, and its command line.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "sim_fixture.h"
#include "simulator/sim_commands.h"
#include "simulator/sim_kinematics.h"
#include "simulator/sim_options.h"

namespace zk_sim_test {
namespace {

// -----------------------------------------------------------------------------------------
// Models
// -----------------------------------------------------------------------------------------

struct ModelCase {
    const char* product;
    zk_sim::ArmFamily family;
    zk_sim::ForceEdition force;
    int dof;
};

class Models : public ::testing::TestWithParam<ModelCase> {};

TEST_P(Models, ProductTextNamesFamilyEditionAndJoints)
{
    zk_sim::SimModel model;
    std::string reason;
    ASSERT_TRUE(zk_sim::sim_model_from_product(GetParam().product, &model, &reason)) << reason;
    EXPECT_EQ(model.family, GetParam().family);
    EXPECT_EQ(model.force, GetParam().force);
    EXPECT_EQ(model.dof, GetParam().dof);
    EXPECT_EQ(model.product, GetParam().product);
    for (int i = 0; i < model.dof; ++i) {
        EXPECT_LT(model.min_pos[i], 0) << i;
        EXPECT_GT(model.max_pos[i], 0) << i;
        EXPECT_GT(model.max_speed[i], 0) << i;
    }
    EXPECT_GT(model.dh.d[model.dof - 1], 0) << "flange length";
}

using zk_sim::ArmFamily;
using zk_sim::ForceEdition;

INSTANTIATE_TEST_SUITE_P(
    Products, Models,
    ::testing::Values(ModelCase{"AX61-B", ArmFamily::ax61, ForceEdition::basic, 6},
                      ModelCase{"AX71-XF", ArmFamily::ax71, ForceEdition::six_axis, 7},
                      // The longer name wins over its prefix, in both tables.
                      ModelCase{"AL64III-QF", ArmFamily::al64_3, ForceEdition::one_axis, 6},
                      ModelCase{"AL64-XFB", ArmFamily::al64_2, ForceEdition::integrated_six_axis, 6},
                      ModelCase{"LUM61-B", ArmFamily::lum61, ForceEdition::basic, 6},
                      ModelCase{"LUM66-XF", ArmFamily::lum66, ForceEdition::six_axis, 6},
                      ModelCase{"TOR77-B", ArmFamily::tor77, ForceEdition::basic, 7},
                      ModelCase{"ZK-LUM67-XFB", ArmFamily::lum67, ForceEdition::integrated_six_axis, 6}),
    [](const auto& info) {
        std::string name = info.param.product;
        std::erase(name, '-');
        return name;
    });

TEST(Models, TextsNoClientRecognisesAreRefused)
{
    zk_sim::SimModel model;
    std::string reason;
    for (const char* product : {"AX62-B", "AX61", "AX61-Q", "", "ZK-AL64III-XFB-X"}) {
        EXPECT_FALSE(zk_sim::sim_model_from_product(product, &model, &reason)) << product;
        EXPECT_FALSE(reason.empty());
    }
}

TEST(Models, SensorLengthensTheFlange)
{
    EXPECT_GT(model_of("AX61-XF").dh.d[5], model_of("AX61-B").dh.d[5]);
}

// -----------------------------------------------------------------------------------------
// Kinematics
// -----------------------------------------------------------------------------------------

// The arm's home: AX61 stands straight up, flange height the sum of its vertical links.
TEST(Kinematics, HomePoseOfAnUprightArm)
{
    const zk_sim::SimModel model = model_of("AX61-B");
    const zk_sim::SimPose home = zk_sim::sim_pose_of(model, zk_sim::Joints{});
    EXPECT_NEAR(home.position[0], 0, 1e-12);
    EXPECT_NEAR(home.position[1], 0, 1e-12);
    EXPECT_NEAR(home.position[2], 0.2405 + 0.256 + 0.21 + 0.144, 1e-12);
}

// Seeded random joints -> pose -> joints -> pose, for every family: the inversion reaches
// the pose, from a nearby seed and from the home position.
class RoundTrip : public ::testing::TestWithParam<const char*> {};

TEST_P(RoundTrip, PoseOfTheFoundJointsIsTheTarget)
{
    constexpr int kSamples = 40;
    const zk_sim::SimModel model = model_of(GetParam());
    std::mt19937 generator(42);
    for (int sample = 0; sample < kSamples; ++sample) {
        zk_sim::Joints joints{}, near{};
        for (int i = 0; i < model.dof; ++i) {
            std::uniform_real_distribution<double> within(model.min_pos[i] * 0.8, model.max_pos[i] * 0.8);
            joints[i] = within(generator);
            near[i] = joints[i] + std::uniform_real_distribution<double>(-10, 10)(generator);
        }
        const zk_sim::SimPose target = zk_sim::sim_pose_of(model, joints);
        for (const zk_sim::Joints& seed : {near, zk_sim::Joints{}}) {
            zk_sim::Joints found{};
            ASSERT_TRUE(zk_sim::sim_joints_for_pose(model, target, seed, &found)) << "sample " << sample;
            const zk_sim::SimPose reached = zk_sim::sim_pose_of(model, found);
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(reached.position[i], target.position[i], 1e-5);
            const auto q1 = zk_sim::sim_quaternion(reached), q2 = zk_sim::sim_quaternion(target);
            const double dot = q1[0] * q2[0] + q1[1] * q2[1] + q1[2] * q2[2] + q1[3] * q2[3];
            EXPECT_NEAR(std::fabs(dot), 1.0, 1e-8);
            for (int i = 0; i < model.dof; ++i) {
                EXPECT_GE(found[i], model.min_pos[i]);
                EXPECT_LE(found[i], model.max_pos[i]);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Families, RoundTrip,
                         ::testing::Values("AX61-B", "AX71-B", "AL64-B", "AL64III-B", "LUM61-B", "LUM66-B",
                                           "TOR77-B", "LUM67-B"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(Kinematics, QuaternionAndEulerAgree)
{
    zk_sim::SimPose pose;
    pose.euler = {0.3, -0.7, 2.1};
    const auto euler = zk_sim::sim_euler_of_quaternion(zk_sim::sim_quaternion(pose));
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(euler[i], pose.euler[i], 1e-12);
    // Scalar first: a half turn about x.
    const auto flipped = zk_sim::sim_euler_of_quaternion({0, 1, 0, 0});
    EXPECT_NEAR(std::fabs(flipped[0]), M_PI, 1e-12);
}

TEST(Kinematics, RotationAboutTheBaseComposesOnTheLeft)
{
    zk_sim::SimPose pose;
    pose.euler = {M_PI, 0, 0};  // flange pointing down
    zk_sim::sim_rotate_about_base(&pose, 2, 0.5);
    EXPECT_NEAR(pose.euler[2], 0.5, 1e-12);
    EXPECT_NEAR(std::fabs(pose.euler[0]), M_PI, 1e-12);
}

// -----------------------------------------------------------------------------------------
// Command line
// -----------------------------------------------------------------------------------------

bool parse_args(std::vector<const char*> args, zk_sim::SimOptions* options, std::string* error = nullptr)
{
    args.insert(args.begin(), "zk_simulator");
    std::string ignored;
    bool help = false;
    return zk_sim::sim_parse_options(static_cast<int>(args.size()), args.data(), options, error ? error : &ignored,
                                     &help);
}

TEST(Options, EveryOptionIsTaken)
{
    zk_sim::SimOptions options;
    ASSERT_TRUE(parse_args({"--address", "0.0.0.0", "--port=0", "--model", "AX71-XFB", "--joints", "1,2,3,4,5,6,7.5",
                            "--speed-scale", "2.5", "--period=5", "--delay", "30", "--drop", "0.25",
                            "--malformed=0.5", "--garbage", "0.1", "--close-after", "12", "--fault-commands",
                            "movej,get_joint_degree", "--verbose"},
                           &options));
    EXPECT_EQ(options.address, "0.0.0.0");
    EXPECT_EQ(options.port, 0);
    EXPECT_EQ(options.product, "AX71-XFB");
    EXPECT_EQ(options.joints, (std::vector<double>{1, 2, 3, 4, 5, 6, 7.5}));
    EXPECT_EQ(options.speed_scale, 2.5);
    EXPECT_EQ(options.period_ms, 5);
    EXPECT_EQ(options.faults.delay_ms, 30);
    EXPECT_EQ(options.faults.drop_share, 0.25);
    EXPECT_EQ(options.faults.malformed_share, 0.5);
    EXPECT_EQ(options.faults.garbage_share, 0.1);
    EXPECT_EQ(options.faults.close_after, 12);
    EXPECT_EQ(options.faults.commands, (std::vector<std::string>{"movej", "get_joint_degree"}));
    EXPECT_TRUE(options.verbose);
}

TEST(Options, DefaultsListenOnLoopback8080AsAnAx61)
{
    zk_sim::SimOptions options;
    ASSERT_TRUE(parse_args({}, &options));
    EXPECT_EQ(options.address, "127.0.0.1");
    EXPECT_EQ(options.port, 8080);
    EXPECT_EQ(options.product, "AX61-B");
}

TEST(Options, BadCommandLinesAreRefusedWithAReason)
{
    const std::vector<std::vector<const char*>> bad = {
        {"--port", "65536"}, {"--port", "http"},     {"--model", "AX99-B"},  {"--drop", "1.5"},
        {"--drop", "-0.1"},  {"--joints", "1,,3"},   {"--speed-scale", "0"}, {"--period", "0"},
        {"--frobnicate"},    {"--port"},             {"--verbose=yes"},      {"--fault-commands", "a,,b"},
        {"--delay", "-5"},   {"--malformed", "abc"}};
    for (const auto& args : bad) {
        zk_sim::SimOptions options;
        std::string error;
        EXPECT_FALSE(parse_args(args, &options, &error)) << args[0];
        EXPECT_FALSE(error.empty());
    }
}

TEST(Options, UsageDocumentsTheRefusalFrameAndWhatEachFaultGivesAClient)
{
    const std::string usage = zk_sim::sim_usage();
    EXPECT_NE(usage.find(zk_sim::kRefusalFrame), std::string::npos);
    EXPECT_NE(usage.find("(-3"), std::string::npos);
    EXPECT_NE(usage.find("(-2)"), std::string::npos);
}

TEST(Options, StartRefusesJointsThatDontFitTheArm)
{
    for (const std::vector<double>& joints : {std::vector<double>{0, 0, 0}, std::vector<double>{0, 0, 0, 0, 0, 500}}) {
        auto options = options_for("AX61-B");
        options.joints = joints;
        zk_sim::Simulator simulator(options);
        std::string error;
        EXPECT_FALSE(simulator.start(&error));
        EXPECT_FALSE(error.empty());
    }
}

}  // namespace
}  // namespace zk_sim_test

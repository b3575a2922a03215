// Forward kinematics: the closed form of each family against the universal chain and an
// independent double-precision chain, the DH entries each family reads, the `what`
// selector, the wrappers against the products of the frames they name, selection by
// robot type, and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "kinematics_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using kin_test::Joints;
using kin_test::T4;

constexpr double kLengthTol = 1e-5;  // m
constexpr double kAngleTol = 1e-5;   // rad, as a rotation-matrix entry

using FamilyFn = Matrix (*)(DH, const float*, int);

/* -----------------------------------------------------------------------------
 * The families and the entries they read
 * -------------------------------------------------------------------------- */

constexpr uint8_t bits(std::initializer_list<int> indices)
{
    uint8_t m = 0;
    for (int i : indices) m = static_cast<uint8_t>(m | (1u << i));
    return m;
}

struct Family {
    const char* name;
    FamilyFn fn;
    RobotType model;  // a model of the family: its default DH
    uint8_t reads_d;  // bit i: d[i] is read
    uint8_t reads_a;
};

const Family kFamilies[] = {
    {"ax61", forward_kinematics_ax61, AX61, bits({0, 3, 5}), bits({2})},
    {"ax71", forward_kinematics_ax71, AX71, bits({0, 2, 4, 6}), bits({})},
    {"al64_2", forward_kinematics_al64_2, AL64II, bits({0, 3, 5}), bits({1, 2, 3})},
    {"al64_3", forward_kinematics_al64_3, AL64III, bits({0, 1, 3, 5}), bits({1, 2, 3})},
    {"lum6", forward_kinematics_lum6, LUM61, bits({0, 3, 4, 5}), bits({1, 2, 3})},
    {"tor7", forward_kinematics_tor7, TOR77, bits({0, 2, 4, 6}), bits({3, 4, 6})},
};

// The family each robot type number must select; types are taken as an unsigned byte.
struct TypeFamily {
    int type;
    FamilyFn fn;
};

const TypeFamily kTypeFamilies[] = {
    {AX61, forward_kinematics_ax61},      {AX71, forward_kinematics_ax71},     {AL64I, forward_kinematics_ax61},
    {AL64II, forward_kinematics_al64_2},  {AL64III, forward_kinematics_al64_3}, {LUM61, forward_kinematics_lum6},
    {LUM66, forward_kinematics_lum6},     {TOR77, forward_kinematics_tor7},    {LUM67, forward_kinematics_lum6},
    {UNIVERSAL, forward_kinematics_ax61}, {AL64IV, forward_kinematics_al64_2}, {TOR77II, forward_kinematics_tor7},
    {12, forward_kinematics_ax61},        {200, forward_kinematics_ax61},      {-1, forward_kinematics_ax61},
    {256 + AL64II, forward_kinematics_al64_2}, {512 + TOR77, forward_kinematics_tor7},
};

bool same_bits(const Matrix& a, const Matrix& b) { return std::memcmp(&a, &b, sizeof(Matrix)) == 0; }

Joints fixed_joints(float base)
{
    Joints q{};
    for (int i = 0; i < 7; ++i) q[i] = base * static_cast<float>(i + 1) - 0.4f;
    return q;
}

double position_diff(const Matrix& a, const Matrix& b)
{
    double d = 0.0;
    for (int i = 0; i < 3; ++i) d = std::fmax(d, std::fabs(static_cast<double>(a.data[i][3]) - b.data[i][3]));
    return d;
}

void expect_all_zero(const Matrix& m, int rows, int cols, const char* what)
{
    EXPECT_EQ(m.irow, rows) << what;
    EXPECT_EQ(m.iline, cols) << what;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_EQ(m.data[i][j], 0.0f) << what << " [" << i << "][" << j << "]";
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Closed forms against the chains
 * -------------------------------------------------------------------------- */

// For every arm model: the family's closed form equals the universal chain's "T0n" and
// the independent double chain, at random joints within limits.
TEST(ForwardKinematics, ClosedFormEqualsUniversalChainForEveryModel)
{
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        Rng rng(1000 + model.type * 10 + model.sensor);
        double worst_pos = 0.0, worst_rot = 0.0;
        for (int n = 0; n < property_cases(); ++n) {
            const Joints q = kin_test::random_joints(rng);
            const Matrix f = forward_kinematics_e(q.data());
            const Matrix chain = kin_universal_kinematics_Tn(q.data(), "machine", "T0n");
            const T4 ref = kin_test::reference_chain(q);
            ASSERT_EQ(f.irow, 4);
            ASSERT_EQ(f.iline, 4);
            const double pos = position_diff(f, chain);
            const double rot = kin_test::max_entry_diff(f, chain, 3, 3);
            worst_pos = std::fmax(worst_pos, pos);
            worst_rot = std::fmax(worst_rot, rot);
            ASSERT_LE(pos, kLengthTol) << model.name << " " << kin_test::joints_text(q);
            ASSERT_LE(rot, kAngleTol) << model.name << " " << kin_test::joints_text(q);
            ASSERT_LE(kin_test::max_entry_diff(f, ref, 3, 4), kLengthTol) << model.name << " " << kin_test::joints_text(q);
            for (int j = 0; j < 3; ++j) ASSERT_EQ(f.data[3][j], 0.0f);
            ASSERT_EQ(f.data[3][3], 1.0f);
        }
        RecordProperty(std::string(model.name) + "_worst_position_m", kin_test::sci(worst_pos));
        RecordProperty(std::string(model.name) + "_worst_rotation", kin_test::sci(worst_rot));
    }
}

// The family's rotation and position parts are those of the full transform, in the shape
// that `what` asks for; any other `what` gives the empty record.
TEST(ForwardKinematics, WhatSelectsRotationPositionOrNothing)
{
    Rng rng(11);
    for (const Family& family : kFamilies) {
        kin_test::use_model({family.model, _B, family.name});
        const DH dh = libalgo_get_dh_value();
        for (int n = 0; n < 200; ++n) {
            const Joints q = kin_test::random_joints(rng);
            const Matrix full = family.fn(dh, q.data(), 0);
            const Matrix rot = family.fn(dh, q.data(), 1);
            const Matrix pos = family.fn(dh, q.data(), 2);
            ASSERT_EQ(rot.irow, 3);
            ASSERT_EQ(rot.iline, 3);
            ASSERT_EQ(pos.irow, 3);
            ASSERT_EQ(pos.iline, 1);
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j) {
                    ASSERT_EQ(rot.data[i][j], (i < 3 && j < 3) ? full.data[i][j] : 0.0f) << family.name;
                    ASSERT_EQ(pos.data[i][j], (i < 3 && j == 0) ? full.data[i][3] : 0.0f) << family.name;
                }
        }
        const Joints q = fixed_joints(0.3f);
        for (int what : {3, -1, 100, std::numeric_limits<int>::min()})
            expect_all_zero(family.fn(dh, q.data(), what), 0, 0, family.name);
    }
}

// Each family reads offset and the d and a entries of its table, and nothing else:
// scrambling every other entry (alpha and err_ included) leaves the result bit for bit,
// while changing any entry it reads moves the flange.
TEST(ForwardKinematics, FamiliesReadExactlyTheirDhEntries)
{
    Rng rng(12);
    for (const Family& family : kFamilies) {
        kin_test::use_model({family.model, _B, family.name});
        const DH dh = libalgo_get_dh_value();
        for (int n = 0; n < 300; ++n) {
            const Joints q = kin_test::random_joints(rng);
            DH scrambled = dh;
            for (int i = 0; i < 8; ++i) {
                if (!(family.reads_d & (1u << i))) scrambled.d[i] = rng.uniformf(-1, 1);
                if (!(family.reads_a & (1u << i))) scrambled.a[i] = rng.uniformf(-1, 1);
                scrambled.alpha[i] = rng.uniformf(-3, 3);
                scrambled.err_d[i] = rng.uniformf(-1, 1);
                scrambled.err_a[i] = rng.uniformf(-1, 1);
                scrambled.err_alpha[i] = rng.uniformf(-1, 1);
                scrambled.err_theta[i] = rng.uniformf(-1, 1);
            }
            for (int what = 0; what < 3; ++what)
                ASSERT_TRUE(same_bits(family.fn(dh, q.data(), what), family.fn(scrambled, q.data(), what)))
                    << family.name << " what " << what;

            if (n >= 5) continue;  // entries that are read: a few joint vectors suffice
            const Matrix base = family.fn(dh, q.data(), 0);
            for (int i = 0; i < 8; ++i) {
                DH changed = dh;
                if (family.reads_d & (1u << i)) {
                    changed.d[i] += 0.01f;
                    EXPECT_GT(kin_test::max_entry_diff(base, family.fn(changed, q.data(), 0), 3, 4), 1e-4)
                        << family.name << " d[" << i << "]";
                }
                changed = dh;
                if (family.reads_a & (1u << i)) {
                    changed.a[i] += 0.01f;
                    EXPECT_GT(kin_test::max_entry_diff(base, family.fn(changed, q.data(), 0), 3, 4), 1e-4)
                        << family.name << " a[" << i << "]";
                }
            }
        }
    }
}

// At zero joints and zero offsets each family stands in its home pose, the independent
// chain's, and the base height d[0] enters the z of the flange one to one.
TEST(ForwardKinematics, HomePoseCarriesBaseHeightInZ)
{
    for (const Family& family : kFamilies) {
        kin_test::use_model({family.model, _B, family.name});
        DH dh = libalgo_get_dh_value();
        for (float& o : dh.offset) o = 0.0f;
        libalgo_set_dh_params(&dh);
        const Joints zero{};
        const Matrix home = family.fn(dh, zero.data(), 0);
        EXPECT_LE(kin_test::max_entry_diff(home, kin_test::reference_chain(zero), 3, 4), kLengthTol) << family.name;
        DH raised = dh;
        raised.d[0] += 0.25f;
        const Matrix higher = family.fn(raised, zero.data(), 0);
        EXPECT_NEAR(higher.data[2][3] - home.data[2][3], 0.25, 1e-6) << family.name;
        EXPECT_EQ(higher.data[0][3], home.data[0][3]) << family.name;
        EXPECT_EQ(higher.data[1][3], home.data[1][3]) << family.name;
    }
}

/* -----------------------------------------------------------------------------
 * Wrappers
 * -------------------------------------------------------------------------- */

namespace {

T4 store_frame(Matrix (*getter)()) { return kin_test::from_matrix(getter()); }

double max_pos_diff(const Pos& p, const T4& t)
{
    return std::fmax(std::fabs(p.x - t.m[0][3]), std::fmax(std::fabs(p.y - t.m[1][3]), std::fabs(p.z - t.m[2][3])));
}

// The pose's position, and both its orientation forms as rotations, against t.
void expect_pose_is(const Pose& p, const T4& t, const char* what)
{
    EXPECT_LE(max_pos_diff(p.position, t), kLengthTol) << what;
    EXPECT_LE(kin_test::max_entry_diff(euler_to_matrix(p.euler), t, 3, 3), kin_test::euler_tol(p.euler, kAngleTol)) << what;
    EXPECT_LE(kin_test::max_entry_diff(quat_to_matrix(p.quaternion), t, 3, 3), kAngleTol) << what;
}

}  // namespace

// Every wrapper equals the product of the frames it names, with random tool, work and
// installation frames (the installation with a translation), for every model.
TEST(ForwardKinematics, WrappersEqualTheProductsOfTheirFrames)
{
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        Rng rng(2000 + model.type * 10 + model.sensor);
        const int cases = std::max(1, property_cases() / 10);
        for (int n = 0; n < cases; ++n) {
            kin_test::randomize_frames(rng);
            const Joints q = kin_test::random_joints(rng);
            const Matrix flange = forward_kinematics_e(q.data());
            const T4 f = kin_test::from_matrix(flange);
            const T4 tt = store_frame(libalgo_get_tool_cs_matrix);
            const T4 ti = store_frame(libalgo_get_robot_install_angle_matrix);
            const T4 tw = store_frame(libalgo_get_work_cs_to_base_matrix);
            const T4 ti_f = kin_test::mul(ti, f);
            const T4 y = kin_test::mul(ti_f, tt);
            const T4 tw_y = kin_test::mul(tw, y);

            ASSERT_LE(kin_test::max_entry_diff(flange, kin_test::reference_chain(q), 3, 4), kLengthTol) << model.name;
            const Matrix world_flange = forward_kinematics_world_to_flange(q.data());
            EXPECT_EQ(world_flange.irow, 4);
            EXPECT_LE(kin_test::max_entry_diff(world_flange, ti_f, 4, 4), kLengthTol) << model.name;

            const Matrix rot = forward_kinematics_rotate(q.data());
            EXPECT_EQ(rot.irow, 3);
            EXPECT_EQ(rot.iline, 3);
            EXPECT_LE(kin_test::max_entry_diff(rot, tw_y, 3, 3), kAngleTol) << model.name;
            const Matrix rot_flange = forward_kinematics_rotate_flange(q.data());
            EXPECT_LE(kin_test::max_entry_diff(rot_flange, kin_test::mul(tw, ti_f), 3, 3), kAngleTol) << model.name;
            for (int i = 0; i < 4; ++i) {
                EXPECT_EQ(rot.data[i][3], 0.0f);
                EXPECT_EQ(rot.data[3][i], 0.0f);
            }

            EXPECT_LE(max_pos_diff(forward_kinematics_pos(q.data()), tw_y), kLengthTol) << model.name;
            EXPECT_LE(max_pos_diff(forward_kinematics_pos_calibration(q.data()), y), kLengthTol) << model.name;

            const Pose_and_matrix unity = forward_kinematics_for_unity(q.data());
            EXPECT_LE(kin_test::max_entry_diff(unity.matrix, y, 4, 4), kLengthTol) << model.name;
            const Pose unity_pose = transformation_matrix_to_pose(unity.matrix);
            EXPECT_EQ(std::memcmp(&unity_pose, &unity.pose, sizeof(Pose)), 0) << model.name;

            expect_pose_is(forward_kinematics(q.data()), tw_y, model.name);
            // The universal chain's "Twt" is the same tool in the same work frame.
            EXPECT_LE(kin_test::max_entry_diff(kin_universal_kinematics_Tn(q.data(), "machine", "Twt"), tw_y, 3, 4),
                      kLengthTol)
                << model.name;
        }
    }
}

// The rotation wrappers do not see any translation, the calibration position does not
// see the work frame, and with identity frames forward_kinematics is the pose of F.
TEST(ForwardKinematics, FramesEnterOnlyWhereNamed)
{
    kin_test::use_model({LUM61, _B, "LUM61"});
    Rng rng(13);
    for (int n = 0; n < 200; ++n) {
        kin_test::randomize_frames(rng);
        const Joints q = kin_test::random_joints(rng);
        const Matrix rot = forward_kinematics_rotate(q.data());
        const Matrix rot_flange = forward_kinematics_rotate_flange(q.data());
        const Pos calib = forward_kinematics_pos_calibration(q.data());

        Coord tool = libalgo_get_tool_cs_params(), work = libalgo_get_work_cs_params();
        tool.x += 0.5f, tool.y -= 0.2f, tool.z += 1.0f;
        libalgo_set_tool_cs_params(&tool);
        robot.install_matrix.data[0][3] += 0.7f;
        robot.install_matrix.data[2][3] -= 0.3f;
        // A new work frame of the same rotation and another origin.
        work.x += 2.0f, work.z -= 1.0f;
        libalgo_set_work_cs_params(&work);
        EXPECT_TRUE(same_bits(rot, forward_kinematics_rotate(q.data())));
        EXPECT_TRUE(same_bits(rot_flange, forward_kinematics_rotate_flange(q.data())));

        // Any work frame at all leaves the calibration position alone.
        const Coord other_work = kin_test::random_coord(rng, 2.0f);
        libalgo_set_work_cs_params(&other_work);
        robot.install_matrix.data[0][3] -= 0.7f;
        robot.install_matrix.data[2][3] += 0.3f;
        tool.x -= 0.5f, tool.y += 0.2f, tool.z -= 1.0f;
        libalgo_set_tool_cs_params(&tool);
        const Pos calib2 = forward_kinematics_pos_calibration(q.data());
        EXPECT_NEAR(calib.x, calib2.x, 1e-6);
        EXPECT_NEAR(calib.y, calib2.y, 1e-6);
        EXPECT_NEAR(calib.z, calib2.z, 1e-6);
    }

    libalgo_init();
    ASSERT_EQ(libalgo_set_robot_and_sensor_type(TOR77, _B), 0);
    for (int n = 0; n < 200; ++n) {
        const Joints q = kin_test::random_joints(rng);
        const Pose a = forward_kinematics(q.data());
        const Pose b = transformation_matrix_to_pose(forward_kinematics_e(q.data()));
        EXPECT_FLOAT_EQ(a.position.x, b.position.x);
        EXPECT_FLOAT_EQ(a.position.y, b.position.y);
        EXPECT_FLOAT_EQ(a.position.z, b.position.z);
        EXPECT_LE(kin_test::max_entry_diff(euler_to_matrix(a.euler), euler_to_matrix(b.euler)), 1e-6);
    }
}

// The model's type picks the family as an unsigned byte; every type without a family of
// its own, UNIVERSAL and AL64I included, takes AX61's. The DH is the model's.
TEST(ForwardKinematics, SelectionByRobotType)
{
    Rng rng(14);
    kin_test::use_model({AX61, _B, "AX61"});
    DH dh = libalgo_get_dh_value();
    // Lengths in every entry, so that a wrong family would show.
    for (int i = 0; i < 8; ++i) {
        dh.d[i] = 0.1f + 0.01f * static_cast<float>(i);
        dh.a[i] = 0.05f + 0.01f * static_cast<float>(i);
    }
    robot.dh = dh;
    robot.rbt_dof = 7;
    for (const TypeFamily& entry : kTypeFamilies) {
        robot.robot_type = static_cast<RobotType>(entry.type);
        for (int n = 0; n < 20; ++n) {
            Joints q{};
            for (int i = 0; i < 7; ++i) q[i] = rng.uniformf(-3, 3);
            const Matrix expected = entry.fn(dh, q.data(), 0);
            EXPECT_TRUE(same_bits(forward_kinematics_e(q.data()), expected)) << "type " << entry.type;
            EXPECT_TRUE(same_bits(forward_kinematics_world_to_flange(q.data()), expected)) << "type " << entry.type;
            const Pose p = forward_kinematics(q.data());
            EXPECT_FLOAT_EQ(p.position.x, expected.data[0][3]) << "type " << entry.type;
            EXPECT_FLOAT_EQ(p.position.z, expected.data[2][3]) << "type " << entry.type;
        }
    }
}

/* -----------------------------------------------------------------------------
 * Bad input and the second arm
 * -------------------------------------------------------------------------- */

// NaN joints give NaN results; a null joint vector gives the zero record everywhere.
TEST(ForwardKinematics, NanJointsAndNullPointers)
{
    for (const Family& family : kFamilies) {
        kin_test::use_model({family.model, _B, family.name});
        const DH dh = libalgo_get_dh_value();
        Joints q = fixed_joints(0.2f);
        q[1] = std::numeric_limits<float>::quiet_NaN();
        EXPECT_TRUE(std::isnan(family.fn(dh, q.data(), 0).data[0][3])) << family.name;
        EXPECT_TRUE(std::isnan(forward_kinematics(q.data()).position.x)) << family.name;
        EXPECT_TRUE(std::isnan(forward_kinematics_pos(q.data()).z)) << family.name;
        EXPECT_TRUE(std::isnan(forward_kinematics_rotate(q.data()).data[0][0])) << family.name;
        EXPECT_TRUE(std::isnan(kin_universal_kinematics_Tn(q.data(), "machine", "Twt").data[0][3])) << family.name;

        for (int what = 0; what < 4; ++what) expect_all_zero(family.fn(dh, nullptr, what), 0, 0, family.name);
    }
    const Pose zero_pose{};
    const Pose p = forward_kinematics(nullptr);
    EXPECT_EQ(std::memcmp(&p, &zero_pose, sizeof(Pose)), 0);
    expect_all_zero(forward_kinematics_e(nullptr), 0, 0, "e");
    expect_all_zero(forward_kinematics_rotate(nullptr), 0, 0, "rotate");
    expect_all_zero(forward_kinematics_rotate_flange(nullptr), 0, 0, "rotate_flange");
    expect_all_zero(forward_kinematics_world_to_flange(nullptr), 0, 0, "world_to_flange");
    const Pos pos = forward_kinematics_pos(nullptr), calib = forward_kinematics_pos_calibration(nullptr);
    EXPECT_EQ(pos.x + pos.y + pos.z + calib.x + calib.y + calib.z, 0.0f);
    const Pose_and_matrix unity = forward_kinematics_for_unity(nullptr);
    expect_all_zero(unity.matrix, 0, 0, "for_unity");
    const DH dh = libalgo_get_dh_value();
    expect_all_zero(forward_kinematics_double_arm(&dh, nullptr, 0), 0, 0, "double_arm q");
    expect_all_zero(forward_kinematics_double_arm(nullptr, fixed_joints(0.1f).data(), 0), 0, 0, "double_arm mount");
}

// The second arm's base: the first arm's chain times the mount link of entry 7 at a
// joint value of zero; `what` picks the part, any other value the product.
TEST(ForwardKinematics, DoubleArmAppendsTheMountLink)
{
    Rng rng(15);
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        for (int n = 0; n < 50; ++n) {
            DH mount{};
            mount.d[7] = rng.uniformf(-0.3f, 0.3f);
            mount.a[7] = rng.uniformf(-0.3f, 0.3f);
            mount.alpha[7] = rng.uniformf(-3, 3);
            mount.offset[7] = 1.0f;  // not a joint value: not read
            const Joints q = kin_test::random_joints(rng);
            const T4 expected = kin_test::mul(kin_test::reference_chain(q),
                                              kin_test::link_modified(mount.alpha[7], mount.a[7], 0.0, mount.d[7]));
            const Matrix full = forward_kinematics_double_arm(&mount, q.data(), 0);
            EXPECT_EQ(full.irow, 4);
            EXPECT_EQ(full.iline, 4);
            EXPECT_LE(kin_test::max_entry_diff(full, expected, 4, 4), kLengthTol) << model.name;
            EXPECT_TRUE(same_bits(forward_kinematics_double_arm(&mount, q.data(), 7), full));
            const Matrix rot = forward_kinematics_double_arm(&mount, q.data(), 1);
            const Matrix pos = forward_kinematics_double_arm(&mount, q.data(), 2);
            EXPECT_EQ(rot.irow, 3);
            EXPECT_EQ(rot.iline, 3);
            EXPECT_EQ(pos.irow, 3);
            EXPECT_EQ(pos.iline, 1);
            for (int i = 0; i < 3; ++i) {
                EXPECT_EQ(pos.data[i][0], full.data[i][3]);
                for (int j = 0; j < 3; ++j) EXPECT_EQ(rot.data[i][j], full.data[i][j]);
            }
        }
    }
}

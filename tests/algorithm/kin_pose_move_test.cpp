// Pose helpers: conversions, the change between base and work frame (round trips, and
// the general inverse), and relative moves in the work and tool frames against
// transforms built by hand in double precision: a rotation about axis k of a frame with
// rotation A is A R_k A^T, independent of the Rodrigues formula the library uses.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "kinematics_test_util.h"

namespace {

using algo_test::property_cases;
using algo_test::Rng;
using kin_test::Joints;

constexpr double kTol = 1e-5;
constexpr double kPi = 3.14159265358979323846;
constexpr double kDeg = kPi / 180.0;

struct R3 {
    double m[3][3];
};

R3 mul(const R3& a, const R3& b)
{
    R3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) r.m[i][j] += a.m[i][k] * b.m[k][j];
    return r;
}

R3 transpose(const R3& a)
{
    R3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = a.m[j][i];
    return r;
}

// Elementary rotation about axis k (0 x, 1 y, 2 z).
R3 elementary(int k, double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    const int i = (k + 1) % 3, j = (k + 2) % 3;
    R3 r{};
    r.m[k][k] = 1;
    r.m[i][i] = c, r.m[i][j] = -s, r.m[j][i] = s, r.m[j][j] = c;
    return r;
}

R3 from_euler(const Euler& e)
{
    return mul(elementary(2, e.rz), mul(elementary(1, e.ry), elementary(0, e.rx)));
}

R3 from_matrix(const Matrix& m)
{
    R3 r{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) r.m[i][j] = m.data[i][j];
    return r;
}

// Rotation by angle about axis k of a frame whose rotation is a.
R3 about_frame_axis(const R3& a, int k, double angle) { return mul(a, mul(elementary(k, angle), transpose(a))); }

double diff(const R3& a, const R3& b)
{
    double d = 0;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) d = std::fmax(d, std::fabs(a.m[i][j] - b.m[i][j]));
    return d;
}

Pose random_pose(Rng& rng, float reach = 1.0f)
{
    const Coord c = kin_test::random_coord(rng, reach);
    Pose p{};
    p.position = Pos{c.x, c.y, c.z};
    p.euler = Euler{c.rx, c.ry, c.rz};
    p.quaternion = Quat{rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1)};
    return p;  // quaternion deliberately unrelated to the Euler angles
}

bool same_bits(const Pose& a, const Pose& b) { return std::memcmp(&a, &b, sizeof(Pose)) == 0; }
bool same_bits(const Euler& a, const Euler& b) { return std::memcmp(&a, &b, sizeof(Euler)) == 0; }
bool same_bits(const Pos& a, const Pos& b) { return std::memcmp(&a, &b, sizeof(Pos)) == 0; }

double pos_diff(const Pos& a, const Pos& b)
{
    return std::fmax(std::fabs(a.x - b.x), std::fmax(std::fabs(a.y - b.y), std::fabs(a.z - b.z)));
}

void expect_quat_from_euler(const Pose& p, const char* what)
{
    const Quat q = euler_to_quat(p.euler);
    EXPECT_EQ(std::memcmp(&q, &p.quaternion, sizeof(Quat)), 0) << what;
}

}  // namespace

/* -----------------------------------------------------------------------------
 * Conversions and changes of frame
 * -------------------------------------------------------------------------- */

// base -> work is work x T(p); work -> base undoes it, through the general inverse, so
// that the position comes back even for a work matrix that is not rigid.
TEST(PoseHelpers, BaseAndWorkFrameRoundTrip)
{
    Rng rng(62);
    for (int n = 0; n < property_cases(); ++n) {
        const Coord frame = kin_test::random_coord(rng, 2.0f);
        libalgo_set_work_cs_params(&frame);
        const Matrix work = libalgo_get_work_cs_to_base_matrix();
        const Pose p = random_pose(rng);

        const Pose in_work = algo_base_to_workframe(work, p);
        const kin_test::T4 expected =
            kin_test::mul(kin_test::from_matrix(work), kin_test::from_matrix(pose_euler_to_transformation_matrix(p)));
        ASSERT_LE(std::fabs(in_work.position.x - expected.m[0][3]), kTol);
        ASSERT_LE(std::fabs(in_work.position.z - expected.m[2][3]), kTol);
        ASSERT_LE(kin_test::max_entry_diff(euler_to_matrix(in_work.euler), expected, 3, 3), kin_test::euler_tol(in_work.euler));

        const Pose back = algo_workframe_to_base(work, in_work);
        ASSERT_LE(pos_diff(back.position, p.position), kTol);
        // The way back starts from the Euler angles of the way there: both extractions count.
        const double round_trip_tol = kin_test::euler_tol(in_work.euler) + kin_test::euler_tol(back.euler);
        ASSERT_LE(diff(from_euler(back.euler), from_euler(p.euler)), round_trip_tol);
        ASSERT_LE(diff(from_matrix(quat_to_matrix(back.quaternion)), from_euler(p.euler)), round_trip_tol);
    }
    // A sheared work matrix: a transpose would not undo it, the general inverse does.
    Matrix sheared = unit_matrix(4);
    sheared.data[0][1] = 0.4f;
    sheared.data[1][2] = -0.3f;
    sheared.data[2][3] = 0.5f;
    for (int n = 0; n < 100; ++n) {
        const Pose p = random_pose(rng);
        const Pose back = algo_workframe_to_base(sheared, algo_base_to_workframe(sheared, p));
        EXPECT_LE(pos_diff(back.position, p.position), kTol);
    }
}

/* -----------------------------------------------------------------------------
 * Translations
 * -------------------------------------------------------------------------- */

TEST(PoseHelpers, TranslationsInWorkAndToolFrames)
{
    Rng rng(63);
    for (int n = 0; n < property_cases(); ++n) {
        const Pose cur = random_pose(rng);
        const float delta[6] = {rng.uniformf(-0.5f, 0.5f), rng.uniformf(-0.5f, 0.5f), rng.uniformf(-0.5f, 0.5f),
                                rng.uniformf(-90, 90),     rng.uniformf(-90, 90),     rng.uniformf(-90, 90)};
        Pose work_expected{};
        work_expected.position = Pos{cur.position.x + delta[0], cur.position.y + delta[1], cur.position.z + delta[2]};
        ASSERT_TRUE(same_bits(dPosMoveWork(cur, delta), work_expected));
        ASSERT_TRUE(same_bits(dPosMove(cur, delta, 0), work_expected));

        // Along the pose's own axes: p + R d, the orientation kept.
        const Pose tool = dPosMoveTool(cur, delta);
        const R3 r = from_euler(cur.euler);
        const double moved[3] = {
            cur.position.x + r.m[0][0] * delta[0] + r.m[0][1] * delta[1] + r.m[0][2] * delta[2],
            cur.position.y + r.m[1][0] * delta[0] + r.m[1][1] * delta[1] + r.m[1][2] * delta[2],
            cur.position.z + r.m[2][0] * delta[0] + r.m[2][1] * delta[1] + r.m[2][2] * delta[2]};
        ASSERT_LE(std::fabs(tool.position.x - moved[0]), kTol);
        ASSERT_LE(std::fabs(tool.position.y - moved[1]), kTol);
        ASSERT_LE(std::fabs(tool.position.z - moved[2]), kTol);
        ASSERT_LE(diff(from_euler(tool.euler), r), kin_test::euler_tol(tool.euler));
        expect_quat_from_euler(tool, "dPosMoveTool");
        ASSERT_TRUE(same_bits(dPosMove(cur, delta, 1), tool));
        for (int frame : {2, -1, 100}) ASSERT_TRUE(same_bits(dPosMove(cur, delta, frame), Pose{}));
    }
}

// The tool move extracts its angles plainly: no wrap below -3.13, and at ry = pi/2 no
// gimbal branch (rx and rz are what the rounding makes of them; the position holds).
TEST(PoseHelpers, ToolMoveExtractsAnglesWithoutWrapOrGimbalBranch)
{
    const float zero[6] = {};
    Pose cur{};
    cur.euler = Euler{-3.14f, 0.2f, -3.135f};
    const Pose kept = dPosMoveTool(cur, zero);
    EXPECT_NEAR(kept.euler.rx, -3.14f, 1e-5);
    EXPECT_NEAR(kept.euler.rz, -3.135f, 1e-5);
    EXPECT_GT(matrix_to_euler(euler_to_matrix(cur.euler)).rz, 3.13f);  // where the wrap would have put it

    cur.euler = Euler{0.3f, 1.5707964f, -0.2f};
    cur.position = Pos{0.1f, 0.2f, 0.3f};
    const float along[6] = {0.1f, 0.0f, 0.0f, 0, 0, 0};
    const Pose gimbal = dPosMoveTool(cur, along);
    EXPECT_NEAR(gimbal.euler.ry, 1.5707964f, 1e-3);
    EXPECT_NEAR(gimbal.position.z, 0.3f - 0.1f, 1e-6);  // x of the pose points down
    EXPECT_NEAR(gimbal.position.x, 0.1f, 1e-6);
}

/* -----------------------------------------------------------------------------
 * Rotations
 * -------------------------------------------------------------------------- */

// rx, ry, rz in turn, each about that axis of the work frame (in the pose's coordinates)
// or of the tool frame (relative to the pose's own frame); position kept, quaternion from
// the final angles; zero angles are skipped.
TEST(PoseHelpers, RotationsAboutWorkAndToolAxes)
{
    Rng rng(64);
    for (int n = 0; n < property_cases(); ++n) {
        const Coord work = kin_test::random_coord(rng, 1.0f), tool = kin_test::random_coord(rng, 0.2f);
        libalgo_set_work_cs_params(&work);
        libalgo_set_tool_cs_params(&tool);
        const Pose cur = random_pose(rng);
        float delta[6] = {0.1f, 0.2f, 0.3f, rng.uniformf(-90, 90), rng.uniformf(-90, 90), rng.uniformf(-90, 90)};
        if (n % 4 == 1) delta[3 + n % 3] = 0.0f;  // a skipped axis now and then

        const R3 rw = from_euler(Euler{work.rx, work.ry, work.rz}), rt = from_euler(Euler{tool.rx, tool.ry, tool.rz});
        // Each axis goes through Euler angles: the error of every intermediate counts.
        R3 fixed = from_euler(cur.euler), moving = fixed;
        double fixed_tol = 0.0, moving_tol = 0.0;
        for (int k = 0; k < 3; ++k) {
            fixed = mul(about_frame_axis(rw, k, delta[3 + k] * kDeg), fixed);
            moving = mul(moving, about_frame_axis(rt, k, delta[3 + k] * kDeg));
            fixed_tol += kin_test::euler_tol(Euler{0, static_cast<float>(std::asin(-fixed.m[2][0])), 0});
            moving_tol += kin_test::euler_tol(Euler{0, static_cast<float>(std::asin(-moving.m[2][0])), 0});
        }
        const Pose in_work = rotateMove(cur, delta, 0), in_tool = rotateMove(cur, delta, 1);
        ASSERT_LE(diff(from_euler(in_work.euler), fixed), fixed_tol);
        ASSERT_LE(diff(from_euler(in_tool.euler), moving), moving_tol);
        for (const Pose* p : {&in_work, &in_tool}) {
            ASSERT_EQ(std::memcmp(&p->position, &cur.position, sizeof(Pos)), 0);
            expect_quat_from_euler(*p, "rotateMove");
        }
    }
}

// The move is the translation of dPosMove and the rotation of rotateMove, both from cur,
// so that the translation is not turned by the rotation of the same call.
TEST(PoseHelpers, PoseMoveCombinesTranslationAndRotation)
{
    Rng rng(66);
    for (int n = 0; n < 500; ++n) {
        const Coord work = kin_test::random_coord(rng), tool = kin_test::random_coord(rng);
        libalgo_set_work_cs_params(&work);
        libalgo_set_tool_cs_params(&tool);
        const Pose cur = random_pose(rng);
        const float delta[6] = {rng.uniformf(-1, 1), rng.uniformf(-1, 1), rng.uniformf(-1, 1),
                                rng.uniformf(-45, 45), rng.uniformf(-45, 45), rng.uniformf(-45, 45)};
        for (int frame : {0, 1}) {
            const Pose moved = algo_pose_move(cur, delta, frame);
            const Pose rot = rotateMove(cur, delta, frame);
            EXPECT_TRUE(same_bits(moved.euler, rot.euler));
            EXPECT_EQ(std::memcmp(&moved.quaternion, &rot.quaternion, sizeof(Quat)), 0);
            const Pos pos = dPosMove(cur, delta, frame).position;
            EXPECT_EQ(std::memcmp(&moved.position, &pos, sizeof(Pos)), 0);
        }
    }
    // An unknown frame: zero position, the orientation as it was, the quaternion
    // recomputed.
    const Pose cur = random_pose(rng);
    const float delta[6] = {0.1f, 0.2f, 0.3f, 10, 20, 30};
    for (int frame : {2, -1}) {
        const Pose other = algo_pose_move(cur, delta, frame);
        EXPECT_TRUE(same_bits(other.position, Pos{}));
        EXPECT_TRUE(same_bits(other.euler, cur.euler));
        expect_quat_from_euler(other, "unknown frame");
    }
    // No rotation in either frame: the Euler angles untouched, whatever the quaternion was.
    const float zero[6] = {};
    for (int frame : {0, 1}) {
        const Pose still = algo_pose_move(cur, zero, frame);
        EXPECT_TRUE(same_bits(still.euler, cur.euler));
        expect_quat_from_euler(still, "zero delta");
    }
    EXPECT_TRUE(same_bits(algo_pose_move(cur, zero, 0).position, cur.position));
}

// The Rodrigues helpers: the axis is picked by the first entry of 1 or -1 (its sign
// does not turn the rotation), the frame's position does not enter, no axis turns
// nothing, null pointers are harmless.
TEST(PoseHelpers, RodriguesAboutAFrameAxis)
{
    Rng rng(67);
    for (int n = 0; n < property_cases(); ++n) {
        const Pose frame = random_pose(rng, 5.0f);
        const Euler e = random_pose(rng).euler;
        const float angle = rng.uniformf(-3, 3);
        const int k = n % 3;
        int dir[3] = {0, 0, 0};
        dir[k] = n % 2 ? 1 : -1;
        Euler fixed{}, moving{};
        Rodrigues_rotate_simplify(&fixed, e, dir, angle, frame);
        Rodrigues_rotate_simplify_tool(&moving, e, dir, angle, frame);
        const R3 a = from_euler(frame.euler), r = from_euler(e);
        ASSERT_LE(diff(from_euler(fixed), mul(about_frame_axis(a, k, angle), r)), kin_test::euler_tol(fixed));
        ASSERT_LE(diff(from_euler(moving), mul(r, about_frame_axis(a, k, angle))), kin_test::euler_tol(moving));
    }
    const Pose frame = random_pose(rng);
    const Euler e{0.1f, 0.2f, 0.3f};
    Euler out{};
    const int none[3] = {0, 0, 0}, two_first[3] = {2, 0, 1}, z[3] = {0, 0, 1};
    Rodrigues_rotate_simplify(&out, e, none, 1.0f, frame);
    EXPECT_TRUE(same_bits(out, e));
    Rodrigues_rotate_simplify_tool(&out, e, nullptr, 1.0f, frame);
    EXPECT_TRUE(same_bits(out, e));
    Euler by_z{}, by_first{};
    Rodrigues_rotate_simplify(&by_z, e, z, 1.0f, frame);
    Rodrigues_rotate_simplify(&by_first, e, two_first, 1.0f, frame);
    EXPECT_TRUE(same_bits(by_z, by_first));
    Rodrigues_rotate_simplify(nullptr, e, z, 1.0f, frame);
    Rodrigues_rotate_simplify_tool(nullptr, e, z, 1.0f, frame);
}

/* -----------------------------------------------------------------------------
 * Moves from a joint vector
 * -------------------------------------------------------------------------- */

namespace {

Joints degrees_of(const Joints& q)
{
    Joints d{};
    for (int i = 0; i < 8; ++i) d[i] = static_cast<float>(q[i] / kDeg);
    return d;
}

Joints radians_of(const Joints& d)
{
    Joints q{};
    for (int i = 0; i < 8; ++i) q[i] = static_cast<float>(d[i] * kDeg);
    return q;
}

}  // namespace

// The pose at q (degrees) turned about an axis of the chosen frame; any other axis turns
// nothing.
TEST(PoseHelpers, RotateMoveTurnsTheToolAboutAChosenAxis)
{
    Rng rng(68);
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        for (int n = 0; n < 100; ++n) {
            kin_test::randomize_frames(rng);
            const Joints deg = degrees_of(kin_test::random_joints(rng));
            const Pose choose = random_pose(rng);
            const float angle = rng.uniformf(-180, 180);
            const Pose at = forward_kinematics(radians_of(deg).data());
            for (int axis = 1; axis <= 3; ++axis) {
                const Pose turned = algo_rotate_move(deg.data(), axis, angle, choose);
                const R3 expected = mul(about_frame_axis(from_euler(choose.euler), axis - 1, angle * kDeg),
                                        from_euler(at.euler));
                ASSERT_LE(diff(from_euler(turned.euler), expected), kin_test::euler_tol(turned.euler)) << model.name;
                ASSERT_EQ(std::memcmp(&turned.position, &at.position, sizeof(Pos)), 0);
                expect_quat_from_euler(turned, "algo_rotate_move");
            }
            for (int axis : {0, 4, -1}) {
                const Pose same = algo_rotate_move(deg.data(), axis, angle, choose);
                ASSERT_TRUE(same_bits(same.euler, at.euler));
            }
        }
    }
}

// The tool at q (degrees) moved along its own axes, seen in the work frame: Tw F Tt D,
// without the installation.
TEST(PoseHelpers, CartesianToolMovesAlongToolAxesWithoutInstallation)
{
    Rng rng(69);
    for (const kin_test::ArmModel& model : kin_test::kArmModels) {
        kin_test::use_model(model);
        for (int n = 0; n < 100; ++n) {
            kin_test::randomize_frames(rng);
            const Joints deg = degrees_of(kin_test::random_joints(rng));
            const float x = rng.uniformf(-0.3f, 0.3f), y = rng.uniformf(-0.3f, 0.3f), z = rng.uniformf(-0.3f, 0.3f);
            const kin_test::T4 expected = kin_test::mul(
                kin_test::mul(kin_test::from_matrix(libalgo_get_work_cs_to_base_matrix()),
                              kin_test::from_matrix(forward_kinematics_e(radians_of(deg).data()))),
                kin_test::mul(kin_test::from_matrix(libalgo_get_tool_cs_matrix()), kin_test::trans(x, y, z)));
            const Pose p = algo_cartesian_tool(deg.data(), x, y, z);
            ASSERT_LE(std::fabs(p.position.x - expected.m[0][3]), kTol) << model.name;
            ASSERT_LE(std::fabs(p.position.y - expected.m[1][3]), kTol) << model.name;
            ASSERT_LE(std::fabs(p.position.z - expected.m[2][3]), kTol) << model.name;
            ASSERT_LE(kin_test::max_entry_diff(euler_to_matrix(p.euler), expected, 3, 3), kin_test::euler_tol(p.euler))
                << model.name;
        }
    }
}

// One attitude step: axis 3, 4, 5 about x, y, z of the work frame (frame 0) or the tool
// frame (any other frame); other axes turn nothing.
TEST(PoseHelpers, StepAttitudeTurnsAboutWorkOrToolAxes)
{
    Rng rng(70);
    kin_test::use_model({AL64II, _B, "AL64II"});
    for (int n = 0; n < 300; ++n) {
        kin_test::randomize_frames(rng);
        const Joints q = kin_test::random_joints(rng);
        const float angle = rng.uniformf(-1, 1);
        const Pose at = forward_kinematics(q.data());
        const Coord work = libalgo_get_work_cs_params(), tool = libalgo_get_tool_cs_params();
        const R3 rw = from_euler(Euler{work.rx, work.ry, work.rz}), rt = from_euler(Euler{tool.rx, tool.ry, tool.rz});
        for (int axis = 3; axis <= 5; ++axis) {
            Pose in_work{}, in_tool{}, in_tool7{};
            step_attitude(&in_work, q.data(), 0, axis, angle);
            step_attitude(&in_tool, q.data(), 1, axis, angle);
            step_attitude(&in_tool7, q.data(), 7, axis, angle);
            ASSERT_LE(diff(from_euler(in_work.euler), mul(about_frame_axis(rw, axis - 3, angle), from_euler(at.euler))),
                      kin_test::euler_tol(in_work.euler));
            ASSERT_LE(diff(from_euler(in_tool.euler), mul(from_euler(at.euler), about_frame_axis(rt, axis - 3, angle))),
                      kin_test::euler_tol(in_tool.euler));
            ASSERT_TRUE(same_bits(in_tool, in_tool7));
            ASSERT_EQ(std::memcmp(&in_work.position, &at.position, sizeof(Pos)), 0);
            expect_quat_from_euler(in_work, "step_attitude");
        }
        Pose still{};
        step_attitude(&still, q.data(), 0, 2, angle);
        ASSERT_TRUE(same_bits(still.euler, at.euler));
    }
}

/* -----------------------------------------------------------------------------
 * Null pointers
 * -------------------------------------------------------------------------- */

TEST(PoseHelpers, NullPointersGiveZeroPoses)
{
    kin_test::use_model({AX61, _B, "AX61"});
    Rng rng(71);
    const Pose cur = random_pose(rng);
    EXPECT_TRUE(same_bits(algo_pose_move(cur, nullptr, 0), Pose{}));
    EXPECT_TRUE(same_bits(dPosMove(cur, nullptr, 1), Pose{}));
    EXPECT_TRUE(same_bits(dPosMoveWork(cur, nullptr), Pose{}));
    EXPECT_TRUE(same_bits(dPosMoveTool(cur, nullptr), Pose{}));
    EXPECT_TRUE(same_bits(rotateMove(cur, nullptr, 0), Pose{}));
    EXPECT_TRUE(same_bits(algo_rotate_move(nullptr, 1, 10.0f, cur), Pose{}));
    EXPECT_TRUE(same_bits(algo_cartesian_tool(nullptr, 0.1f, 0.2f, 0.3f), Pose{}));
    Pose out = cur;
    step_attitude(&out, nullptr, 0, 3, 0.1f);
    EXPECT_TRUE(same_bits(out, Pose{}));
    const Joints q{};
    step_attitude(nullptr, q.data(), 0, 3, 0.1f);
}

// Kinematics: the universal DH chain, its Jacobians and the singularity analyses.
//
// Unlike the closed forms of tarn_kinematic, the chain reads every entry of the model's
// d, a and alpha, so it serves any geometry and can stop at a named frame. It works on
// the stack only; the snapshots T02, T05, T06 and the thresholds are its globals.
#include "Algorithm/kinematics/tarn_universal_kin.h"

#include <cmath>
#include <cstring>

#include "Algorithm/kinematics/tarn_kinematic.h"
#include "Algorithm/math/tarn_mathfuncs.h"
#include "libalgo_matrix.h"

using tarn::KinFrame;
using tarn::KinVec3;

Matrix T02;
Matrix T05;
Matrix T06;

namespace {

constexpr float kDefaultDShoulder = 0.05f;    // m
constexpr float kDefaultQElbow = 0.17453292f;  // rad, 10 degrees
constexpr float kDefaultQWrist = 0.17453292f;  // rad, 10 degrees

}  // namespace

float d_shoulder = kDefaultDShoulder;
float q_elbow = kDefaultQElbow;
float q_wrist = kDefaultQWrist;

/* -----------------------------------------------------------------------------
 * Link matrices
 * -------------------------------------------------------------------------- */

namespace {

// A twist this close to 0, +-pi/2 or +-pi takes exact cosine and sine, so that a link's
// zero entries are exact zeros and pick up no rounding.
constexpr double kNominalTwistTol = 1e-5;

struct CosSin {
    float c, s;
};

// The difference in double on the float twist, its magnitude in single precision.
bool twist_near(float alpha, double nominal)
{
    const double diff = static_cast<double>(alpha) - nominal;
    return static_cast<double>(std::fabs(static_cast<float>(diff))) < kNominalTwistTol;
}

CosSin twist_cos_sin(float alpha)
{
    if (twist_near(alpha, 0.0)) return {1.0f, 0.0f};
    if (twist_near(alpha, tarn::kHalfPi)) return {0.0f, 1.0f};
    if (twist_near(alpha, -tarn::kHalfPi)) return {0.0f, -1.0f};
    if (twist_near(alpha, tarn::kPi) || twist_near(alpha, -tarn::kPi)) return {-1.0f, 0.0f};
    CosSin t;
    ::sincosf(alpha, &t.s, &t.c);
    return t;
}

bool link_index_valid(int i, const DH* dh, const float* theta)
{
    return dh && theta && i >= 0 && i < LIBALGO_MAX_JOINTS;
}

Matrix homogeneous(const float (&rows)[3][4])
{
    Matrix m{};
    m.irow = 4;
    m.iline = 4;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 4; ++j) m.data[i][j] = rows[i][j];
    m.data[3][3] = 1.0f;
    return m;
}

}  // namespace

Matrix kin_get_MDH_Ti(int i, const DH* dh, const float* theta)
{
    if (!link_index_valid(i, dh, theta)) return Matrix{};
    const CosSin al = twist_cos_sin(dh->alpha[i]);
    CosSin th;
    ::sincosf(theta[i], &th.s, &th.c);
    const float a = dh->a[i], d = dh->d[i];
    return homogeneous({{th.c, -th.s, 0.0f, a},
                        {th.s * al.c, th.c * al.c, -al.s, -d * al.s},
                        {th.s * al.s, th.c * al.s, al.c, d * al.c}});
}

Matrix kin_get_SDH_Ti(int i, const DH* dh, const float* theta)
{
    if (!link_index_valid(i, dh, theta)) return Matrix{};
    const CosSin al = twist_cos_sin(dh->alpha[i]);
    CosSin th;
    ::sincosf(theta[i], &th.s, &th.c);
    const float a = dh->a[i], d = dh->d[i];
    return homogeneous({{th.c, -th.s * al.c, th.s * al.s, a * th.c},
                        {th.s, th.c * al.c, -th.c * al.s, a * th.s},
                        {0.0f, al.s, al.c, d}});
}

/* -----------------------------------------------------------------------------
 * The chain
 * -------------------------------------------------------------------------- */

namespace {

// What the chain needs of the model, read once per call.
struct ChainModel {
    DH dh;
    bool standard;  // AX71: standard DH; every other type modified
    int dof;
    float theta[LIBALGO_MAX_JOINTS];
};

ChainModel chain_model(const float* q, const char* mode)
{
    ChainModel m{};
    m.dh = libalgo_get_dh_value();
    m.standard = libalgo_get_robot_type() == AX71;
    m.dof = tarn::kin_chain_dof();
    const bool modeling = tarn::kin_is_modeling_mode(mode);
    for (int i = 0; i < m.dof; ++i) m.theta[i] = modeling ? q[i] : q[i] + m.dh.offset[i];
    return m;
}

KinFrame chain_link(const ChainModel& m, int i)
{
    return tarn::kin_frame_of(m.standard ? kin_get_SDH_Ti(i, &m.dh, m.theta) : kin_get_MDH_Ti(i, &m.dh, m.theta));
}

// a b of two rigid transforms (the frames of the model are rigid; bottom rows not read).
Matrix rigid_product(const Matrix& a, const Matrix& b)
{
    return tarn::kin_transform_matrix(tarn::kin_compose(tarn::kin_frame_of(a), tarn::kin_frame_of(b)));
}

enum class ChainFrame { kTwt, kT0n, kT06, kT02, kT05, kT0t, kTbt, kTbn, kTwn, kWorkInstall };

struct ChainFrameName {
    const char* name;
    ChainFrame frame;
};

// Compared in this order; the first match applies.
constexpr ChainFrameName kChainFrameNames[] = {
    {"Twt", ChainFrame::kTwt}, {"T0n", ChainFrame::kT0n}, {"T06", ChainFrame::kT06},
    {"T02", ChainFrame::kT02}, {"T05", ChainFrame::kT05}, {"T0t", ChainFrame::kT0t},
    {"Tbt", ChainFrame::kTbt}, {"Tbn", ChainFrame::kTbn}, {"Twn", ChainFrame::kTwn},
};

ChainFrame chain_frame_of(const char* text)
{
    if (text)
        for (const ChainFrameName& entry : kChainFrameNames)
            if (std::strcmp(text, entry.name) == 0) return entry.frame;
    return ChainFrame::kWorkInstall;
}

// Snapshots after joints 2, 5 and 6 (indices of the frames array).
constexpr int kSnapshot02 = 1;
constexpr int kSnapshot05 = 4;
constexpr int kSnapshot06 = 5;

}  // namespace

namespace tarn {

int kin_chain_dof() { return clamp_dim(libalgo_get_rbt_dof(), kMaxChainJoints); }

bool kin_is_modeling_mode(const char* mode) { return mode && std::strcmp(mode, "modeling") == 0; }

int kin_chain_frames(const float* q, const char* mode, Matrix frames[kMaxChainJoints])
{
    const ChainModel m = chain_model(q, mode);
    KinFrame t = tarn::kKinIdentity;
    for (int i = 0; i < m.dof; ++i) {
        t = tarn::kin_compose(t, chain_link(m, i));
        frames[i] = tarn::kin_transform_matrix(t);
    }
    return m.dof;
}

}  // namespace tarn

Matrix kin_universal_kinematics_Tn(const float* q, const char* mode, const char* frame)
{
    if (!q) return Matrix{};
    Matrix frames[tarn::kMaxChainJoints];
    const int n = tarn::kin_chain_frames(q, mode, frames);
    if (n > kSnapshot02) T02 = frames[kSnapshot02];
    if (n > kSnapshot05) T05 = frames[kSnapshot05];
    if (n > kSnapshot06) T06 = frames[kSnapshot06];
    const Matrix t0n = n > 0 ? frames[n - 1] : unit_matrix(4);

    const Matrix tw = libalgo_get_work_cs_to_base_matrix();
    const Matrix ti = libalgo_get_robot_install_angle_matrix();
    const Matrix tt = libalgo_get_tool_cs_matrix();
    switch (chain_frame_of(frame)) {
    case ChainFrame::kTwt:
        return rigid_product(rigid_product(tw, ti), rigid_product(t0n, tt));
    case ChainFrame::kT0n:
        return t0n;
    case ChainFrame::kT06:
        return T06;
    case ChainFrame::kT02:
        return T02;
    case ChainFrame::kT05:
        return T05;
    case ChainFrame::kT0t:
        return rigid_product(t0n, tt);
    case ChainFrame::kTbt:
        return rigid_product(ti, rigid_product(t0n, tt));
    case ChainFrame::kTbn:
        return rigid_product(ti, t0n);
    case ChainFrame::kTwn:
        return rigid_product(rigid_product(tw, ti), t0n);
    case ChainFrame::kWorkInstall:
        break;
    }
    return rigid_product(tw, ti);
}

/* -----------------------------------------------------------------------------
 * Jacobians
 * -------------------------------------------------------------------------- */

namespace {

constexpr int kJacobianRows = 6;  // linear, then angular velocity
constexpr int kAngularRow = 3;    // first row of the angular part
constexpr int kWithTool = 1;

// Column i of the end-frame Jacobian from U, the transform from the frame whose z is the
// joint's axis to the end frame (Paul): with n, o, a the columns of U and p its origin,
// the linear part is (n_y p_x - n_x p_y, o_y p_x - o_x p_y, a_y p_x - a_x p_y), the
// angular part (n_z, o_z, a_z).
void paul_column(Matrix_more& j, int i, const KinFrame& u)
{
    const KinVec3 axes[3] = {u.c0, u.c1, u.c2};
    for (int k = 0; k < 3; ++k) {
        j.data[k][i] = axes[k].y * u.p.x - axes[k].x * u.p.y;
        j.data[kAngularRow + k][i] = axes[k].z;
    }
}

}  // namespace

Matrix_more kin_calc_jacobe_Jx(const float* q, const char* mode, int with_tool)
{
    if (!q) return Matrix_more{};
    const ChainModel m = chain_model(q, mode);
    Matrix_more j{};
    j.irow = kJacobianRows;
    j.iline = static_cast<int16_t>(m.dof);
    // In standard DH the axis of joint i is the z of the frame before link i, in modified
    // DH the z of the frame after it: hence the order of the product and the column.
    KinFrame u = with_tool == kWithTool ? tarn::kin_frame_of(libalgo_get_tool_cs_matrix()) : tarn::kKinIdentity;
    for (int i = m.dof - 1; i >= 0; --i) {
        if (m.standard) u = tarn::kin_compose(chain_link(m, i), u);
        paul_column(j, i, u);
        if (!m.standard) u = tarn::kin_compose(chain_link(m, i), u);
    }
    return j;
}

Matrix_more kin_calc_jacobe_Jn(const float* q, const char* mode) { return kin_calc_jacobe_Jx(q, mode, 0); }

Matrix_more kin_calc_jacobe_Jt(const float* q, const char* mode) { return kin_calc_jacobe_Jx(q, mode, kWithTool); }

Matrix_more kin_calc_jacobe_J0(const float* q, const char* mode)
{
    if (!q) return Matrix_more{};
    Matrix_more j = kin_calc_jacobe_Jt(q, mode);
    // blockdiag(R, R) Jt: each column's linear and angular part turned by R.
    const KinFrame r = tarn::kin_frame_of(kin_universal_kinematics_Tn(q, mode, "Twt"));
    for (int c = 0; c < tarn::clamp_dim(j.iline, tarn::kMatrixMoreDim); ++c)
        for (int part = 0; part < kJacobianRows; part += kAngularRow) {
            const KinVec3 v = tarn::kin_rotate(r, {j.data[part][c], j.data[part + 1][c], j.data[part + 2][c]});
            j.data[part][c] = v.x;
            j.data[part + 1][c] = v.y;
            j.data[part + 2][c] = v.z;
        }
    return j;
}

/* -----------------------------------------------------------------------------
 * Singularity thresholds
 * -------------------------------------------------------------------------- */

void kin_singularity_thresholds_init(void)
{
    d_shoulder = kDefaultDShoulder;
    q_elbow = kDefaultQElbow;
    q_wrist = kDefaultQWrist;
}

void kin_set_singularity_thresholds(float elbow, float wrist, float shoulder)
{
    q_elbow = elbow;
    q_wrist = wrist;
    d_shoulder = shoulder;
}

void kin_get_singularity_thresholds(float* elbow, float* wrist, float* shoulder)
{
    if (elbow) *elbow = q_elbow;
    if (wrist) *wrist = q_wrist;
    if (shoulder) *shoulder = d_shoulder;
}

/* -----------------------------------------------------------------------------
 * Singularity analysis by geometry
 * -------------------------------------------------------------------------- */

namespace {

constexpr int kShoulderSingular = -1;
constexpr int kElbowSingular = -2;
constexpr int kWristSingular = -3;

// The elbow joint values, negated, at which the forearm's offset brings the arm to
// stretched.
constexpr double kElbowStretchedAl64 = 0.1690176847631309;   // AL64II, AL64IV
constexpr double kElbowStretchedTor7 = 0.21700376721746303;  // TOR77, TOR77II

// e = |qe + offset| is the elbow's distance from stretched (0) or folded (pi).
double elbow_offset(RobotType type)
{
    switch (type) {
    case AL64II:
    case AL64IV:
        return kElbowStretchedAl64;
    case TOR77:
    case TOR77II:
        return kElbowStretchedTor7;
    default:
        return 0.0;
    }
}

// Within threshold of 0 or pi, as the joint stands (no wrapping).
bool near_zero_or_pi(float threshold, double magnitude)
{
    return threshold > magnitude || threshold > std::fabs(magnitude - tarn::kPi);
}

}  // namespace

int kin_robot_singularity_analyse(const float* q, const char* mode, float* distance)
{
    if (!q) return 0;
    const int dof = libalgo_get_rbt_dof();
    const RobotType type = libalgo_get_robot_type();
    kin_universal_kinematics_Tn(q, mode, "T0n");

    // A six-axis arm has its elbow at joint 3 and its wrist centre at frame 5; the
    // seven-axis arms at joint 4 and frame 6.
    const bool six_axes = dof == 6;
    const float qe = six_axes ? q[2] : q[3];
    const float qw = six_axes ? q[4] : q[5];
    const Matrix& wrist = six_axes ? T05 : T06;
    const float wx = wrist.data[0][3], wy = wrist.data[1][3];

    // The shoulder axis u: the z of frame 2, or for the standard chain of AX71 its y.
    const int axis_column = (dof == 7 && type == AX71) ? 1 : 2;
    const float ux = T02.data[0][axis_column], uy = T02.data[1][axis_column];
    // n = (0, 0, 1) x u, the normal of the plane through the base axis and u; the wrist
    // point's distance from it. A vertical u gives 0 / 0, a NaN that passes no test.
    const float nx = -uy, ny = ux;
    const float dist = std::fabs(wx * nx + wy * ny) / std::sqrt(nx * nx + ny * ny);
    if (distance) *distance = dist;
    if (d_shoulder > dist) return kShoulderSingular;

    if (near_zero_or_pi(q_elbow, std::fabs(static_cast<double>(qe) + elbow_offset(type)))) return kElbowSingular;
    if (near_zero_or_pi(q_wrist, std::fabs(static_cast<double>(qw)))) return kWristSingular;
    return 0;
}

/* -----------------------------------------------------------------------------
 * Singularity analysis by singular values
 * -------------------------------------------------------------------------- */

namespace {

constexpr float kDefaultSingularThreshold = 0.01f;
constexpr float kMaxSingularThreshold = 1.0f;
constexpr float kNoSingularValue = 1000.0f;  // the smallest value when there is none
constexpr int kSvdFailed = -2;
constexpr int kSvdOk = 1;
constexpr int kSmallSingularValue = -1;

}  // namespace

int kine_robot_universal_singularity_analyse(const float* q, float* threshold)
{
    float t = kDefaultSingularThreshold;
    if (threshold) {
        if (*threshold < 0.0f) *threshold = std::fabs(*threshold);
        t = *threshold > kMaxSingularThreshold ? kMaxSingularThreshold : *threshold;
    }
    if (!q) return 0;

    Mat j = matrix_more_to_mat(kin_calc_jacobe_Jx(q, "machine", 0));
    // The decomposition needs at least as many rows as columns: a seven-axis Jacobian
    // goes in transposed, which has the same singular values.
    if (j.col > j.row) j = mat_T(j);
    Mat u, s, v;
    if (mat_fast_svd(&j, &u, &s, &v) != kSvdOk) return kSvdFailed;

    float smallest = kNoSingularValue;
    for (int i = 0; i < tarn::clamp_dim(s.row, LIBALGO_MAT_DIM); ++i)
        if (s.data[i][0] < smallest) smallest = s.data[i][0];
    smallest = std::fabs(smallest);
    return t >= smallest ? kSmallSingularValue : 0;
}

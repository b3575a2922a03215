/* libapi_c algorithm library: collision geometry, the self-collision model and fences.
 *
 * The arm is modelled in its base frame (after the install rotation) by four joint
 * capsules, four or five link capsules, up to five tool envelope spheres set by the user
 * and the capsules that join those spheres. Every check answers with a clearance in
 * metres, capped at 1.0; at or below 0 means contact. Two ratio functions turn a
 * clearance into a speed ratio for the planner, or a stop code.
 *
 * Units: metres and radians; single precision. Points and vectors are float[3] (x, y, z),
 * a cuboid float[6] (x min, x max, y min, y max, z min, z max, axis-aligned in the base
 * frame), joint arrays float[8] of user joint angles (the DH offset is added here).
 *
 * Bad input. No function reports an error. Degenerate geometry (a zero-length segment, a
 * zero plane normal) and NaN joints give NaN where a division or a NaN reaches the
 * result: a NaN clearance compares false against every threshold, so it reads neither as
 * contact nor as the cap. A null pointer in place of a point or a joint array counts as
 * NaN input; a null output pointer is skipped. Indexes and counts are kept within the
 * arrays: a tool sphere count outside 0..5 counts as the nearer bound.
 *
 * State. The capsule end points, the tool spheres, the fence and dp2face are process-wide
 * arrays rewritten by every check, without a lock: the checks belong to the one thread
 * that runs the planner, and setting a tool envelope or a fence must not overlap a check.
 * Nothing here allocates. */
#ifndef LIBALGO_SAFETY_H
#define LIBALGO_SAFETY_H

#include <stdint.h>

#include "libalgo_math.h"
#include "libalgo_model.h"
#include "zk_export.h"

ZK_EXTERN_C_BEGIN

/* ----------------------------------------------------------------------------------
 * Geometry kit
 * ---------------------------------------------------------------------------------- */

#define LIBALGO_CUBOID_FACES 6

/* Foot of the perpendicular from a point to a line, and the distance to it. */
typedef struct {
    float x, y, z;
    float distance;
} PointLineDistance;

/* a x + b y + c z + d = 0; the normal (a, b, c) is not normalised. */
typedef struct {
    float a, b, c, d;
} Plane;

ZK_API float distance_p2p(const float p[3], const float q[3]);
/* 1 when p, taken to lie on line ab, has a parameter t in [0, 1]. t comes from the
 * coordinates in the order x, y, z: each whose offset from a is non-zero gives
 * offset / (b - a) in that coordinate, a later one replacing an earlier one; t is 0 when
 * every offset is zero. */
ZK_API int isPinL(const float p[3], const float a[3], const float b[3]);
ZK_API PointLineDistance distance_p2l(const float p[3], const float a[3], const float b[3]);
/* Point to segment: to the foot when it passes the parameter test, else to the nearer end. */
ZK_API float distance_p2ls(const float p[3], const float a[3], const float b[3]);
/* Segments ab and cd by their common perpendicular (the capsule checks). Skew axes: the
 * distance of the feet when both lie within the segments, else the least end-to-segment
 * distance. Coplanar axes: segments of the same direction on one line give the least
 * distance between their ends; all others the least end-to-segment distance, so that axes
 * crossing in one plane give a positive result, and anti-parallel segments are not taken
 * for parallel ones. */
ZK_API float distance_ls2ls(const float a[3], const float b[3], const float c[3], const float d[3]);
/* Segments ab and cd by the clamped closest parameters (a c - b^2 below 1e-6 counts as
 * parallel; a parameter numerator or denominator below 1e-6 gives 0). */
ZK_API float distanceSegmentToSegment(const float a[3], const float b[3], const float c[3], const float d[3]);
/* Distance from p to the plane through q with normal n. */
ZK_API float distance_p2surf(const float n[3], const float q[3], const float p[3]);

/* The last distances of distance_p2cuboidface, to each face taken as a bounded
 * rectangle, in this order: top (z max), bottom (z min), x max, x min, y min, y max.
 * Rewritten by every cuboid check. */
ZK_API extern float dp2face[LIBALGO_CUBOID_FACES];
ZK_API void distance_p2cuboidface(const float p[3], const float cuboid[6]);
/* Clearance of a sphere to the faces: min(1.0, each dp2face entry - radius). */
ZK_API float isP_Cube(const float p[3], float radius, const float cuboid[6]);
/* Clearance of the capsule ab to the twelve edges: min(1.0, distance_ls2ls - radius). A
 * capsule inside the cuboid far from every edge reads as clear. */
ZK_API float isLink2CuboidCollision(float radius, const float a[3], const float b[3], const float cuboid[6]);
/* 0 when the segment pq meets a face of the cuboid, else 1 (also for a segment wholly
 * inside). */
ZK_API int check_intersection(const float p[3], const float q[3], const float cuboid[6]);

/* Plane through three points: n = (p2 - p1) x (p3 - p1), d = -n . p1. */
ZK_API Plane getPlaneFromPoints(const float p1[3], const float p2[3], const float p3[3]);
/* Sign of a x + b y + c z + d: +1, -1, or 0 exactly on the plane. */
ZK_API int getPointSideOfPlane(const float p[3], Plane plane);
ZK_API float pointToPlaneDistance(const float p[3], Plane plane);
/* 1 when the distance to the plane exceeds the threshold, else 0. */
ZK_API int is_point_to_plane(const float p[3], float threshold, Plane plane);
/* 1 when (b - a) x (c - a) is exactly zero in all three components (the points lie on
 * one line), else 0. */
ZK_API int isCoplanar(const float a[3], const float b[3], const float c[3]);
/* out = in * (1 / |in|); a zero vector gives NaNs. */
ZK_API void vector2norm(const float in[3], float out[3]);
ZK_API void V1ReduceV2(const float v1[3], const float v2[3], float result[3]); /* v1 - v2 */
ZK_API float dotProduct(const float a[3], const float b[3]);
ZK_API void crossProduct(const float a[3], const float b[3], float result[3]);
/* 1 when |a - b| is below 1e-6 (in double precision). */
ZK_API int IsEqual(float a, float b);

/* ----------------------------------------------------------------------------------
 * Self-collision model
 * ---------------------------------------------------------------------------------- */

#define LIBALGO_TOOL_SPHERES 5    /* tool envelope slots */
#define LIBALGO_ARM_JOINT_CAPSULES 4
#define LIBALGO_ARM_LINK_CAPSULES_MAX 5
/* PJA, PJB: the joint capsules, then (PJA only) the tool sphere centres. */
#define LIBALGO_JOINT_POINTS (LIBALGO_ARM_JOINT_CAPSULES + LIBALGO_TOOL_SPHERES)
/* PLA, PLB: the arm's link capsules, then the tool link capsules. */
#define LIBALGO_LINK_POINTS (LIBALGO_ARM_LINK_CAPSULES_MAX + LIBALGO_TOOL_SPHERES)
/* PJA_min, PJB_max: three joint pairs, then (PJA_min only) the tool sphere centres. */
#define LIBALGO_INSIDE_JOINT_PAIRS 3
#define LIBALGO_INSIDE_POINTS (LIBALGO_INSIDE_JOINT_PAIRS + LIBALGO_TOOL_SPHERES)

/* A tool envelope sphere: radius and centre in the flange frame. A radius of 1e-6 or
 * less marks an empty slot. */
typedef struct {
    float r;
    float x, y, z;
} ToolSphere;

/* What calc_all_end_points_* says of the tool link capsules it built. */
typedef struct {
    int tool_link_num;
    float tool_link_radius[LIBALGO_TOOL_SPHERES];
} ToolLinkResult;

/* The tool envelope: slot index 0..4. Returns 0, or -1 for an index outside 0..4, which
 * stores (reads) nothing; get also refuses a null record. */
ZK_API int libalgo_set_tool_envelope(int index, ToolSphere sphere);
ZK_API int libalgo_get_tool_envelope(int index, ToolSphere* sphere);
/* The tool envelope as set by libalgo_set_tool_envelope; kept until set again. */
ZK_API extern ToolSphere toolModel[LIBALGO_TOOL_SPHERES];
/* Copies every non-empty envelope slot into the same slot of tool_spheres_para and
 * returns their count. Slots are not compacted: an empty slot keeps its older content,
 * and the checks read the first count slots, so a hole hides the last sphere. */
ZK_API int update_ToolSpheresModel(void);
/* The working copy of the envelope read by the checks. */
ZK_API extern ToolSphere tool_spheres_para[LIBALGO_TOOL_SPHERES];

/* Link transforms, header 4, 4. */
ZK_API Matrix standard_dh(float theta, float d, float a, float alpha);
ZK_API Matrix modified_dh(float theta, float d, float a, float alpha);
ZK_API Matrix T_eye(void);

/* Capsule end points of the arm at joints q with the first n tool spheres: PJA[i], PJB[i]
 * the ends of joint capsule i (0..3), PJA[4 + t] the centre of tool sphere t, PLA[i],
 * PLB[i] the ends of link capsule i, the arm's links first, then the tool link capsules.
 * The record gets the count and radii of the tool link capsules (a null record is
 * skipped). Valid until the next check. */
ZK_API extern VEC3 PJA[LIBALGO_JOINT_POINTS];
ZK_API extern VEC3 PJB[LIBALGO_JOINT_POINTS];
ZK_API extern VEC3 PLA[LIBALGO_LINK_POINTS];
ZK_API extern VEC3 PLB[LIBALGO_LINK_POINTS];
ZK_API void calc_all_end_points_AX61(ToolLinkResult* result, const float* q, int n);
ZK_API void calc_all_end_points_AX71(ToolLinkResult* result, const float* q, int n);
ZK_API void calc_all_end_points_AL64II(ToolLinkResult* result, const float* q, int n);
ZK_API void calc_all_end_points_LUM61(ToolLinkResult* result, const float* q, int n);
ZK_API void calc_all_end_points_LUM66(ToolLinkResult* result, const float* q, int n);
ZK_API void calc_all_end_points_TOR77(ToolLinkResult* result, const float* q, int n);

/* Reduced points for the fence inside test: PJA_min[k], PJB_max[k] (k 0..2) span joint
 * capsule k + 1 from one end to the other, offset by its radius to either side, and
 * PJA_min[3 + t] is the centre of tool sphere t. */
ZK_API extern VEC3 PJA_min[LIBALGO_INSIDE_POINTS];
ZK_API extern VEC3 PJB_max[LIBALGO_INSIDE_POINTS];
ZK_API void calc_joint_points_AX61(const float* q, int n);
ZK_API void calc_joint_points_AX71(const float* q, int n);
ZK_API void calc_joint_points_AL64II(const float* q, int n);
ZK_API void calc_joint_points_LUM61(const float* q, int n);
ZK_API void calc_joint_points_LUM66(const float* q, int n);
ZK_API void calc_joint_points_TOR77(const float* q, int n);

/* Least clearance between the parts of one family that may be compared, with the first
 * n tool spheres, capped at 1.0; returns at the first contact. _LUM61 serves LUM61,
 * LUM66 and LUM67 and takes the LUM66 geometry when the model is LUM66. */
/* The payload as the last check read it; it takes no part in the geometry. */
ZK_API extern PayloadCfg _pay_load;
ZK_API float isCollision_self_tool_AX61(const float* q, int n);
ZK_API float isCollision_self_tool_AX71(const float* q, int n);
ZK_API float isCollision_self_tool_AL64II(const float* q, int n);
ZK_API float isCollision_self_tool_LUM61(const float* q, int n);
ZK_API float isCollision_self_tool_TOR77(const float* q, int n);
/* Refreshes the tool spheres and runs the family of the model: AX61; AX71; AL64II and
 * AL64IV; LUM61, LUM66, LUM67; TOR77 and TOR77II. Any other model gives 1.0. */
ZK_API float isCollision_self_tool(const float* q);
/* Speed ratio from the self-clearance at q: within (0, max_ratio], or -1 for
 * self-collision. ratio is the current ratio, scale the running segment's share. */
ZK_API float self_Collision(const float* q, float ratio, float scale, float max_ratio);
/* One-shot check of a pose: 1 when a joint is outside its limits (or NaN) or the arm
 * meets itself (clearance below 1e-5), else 0. */
ZK_API int safety_robot_self_collision_detection(const float* q);

/* ----------------------------------------------------------------------------------
 * Fences
 * ---------------------------------------------------------------------------------- */

#define LIBALGO_FENCE_CUBOID 0u
#define LIBALGO_FENCE_PLANE 1u

/* The shape given to libalgo_set_fence_para and the inside and outside tests: the cuboid,
 * then three points of the plane. */
typedef struct {
    float cuboid[6];
    float plane[9];
} FenceShape;

/* The fence held by the library. */
typedef struct {
    uint32_t type;      /* LIBALGO_FENCE_CUBOID, LIBALGO_FENCE_PLANE; another type passes every check */
    float cuboid[6];
    float plane[9];     /* P1, P2, P3 */
    uint32_t third_arg;  /* cuboid: 0 the arm must be inside, 1 outside */
    uint32_t second_arg; /* cuboid: 1 refuses the fence (result 1 or 2) */
    float joints[8];    /* the joints given with the fence */
} FencePara;

/* The fence as last given to libalgo_set_fence_para, accepted or not. */
ZK_API extern FencePara fence_para;

/* Stores the fence and validates it against the arm at q: 0 accepted; 1 the arm violates
 * it (a plane through the arm; a cuboid failing its test), or q is null or NaN; 2 a
 * cuboid with an empty range in x, y or z (also the argument pair 1, 1); 3 a plane from
 * points on one line, or not finite. The cuboid test by (second, third): (0, 0) the arm
 * must lie inside, (0, 1) outside, (1, 0) gives 1, (1, 1) 2, any other pair 0. A fence type
 * other than 0 and 1, or a model without a collision family, gives 0 once the shape is
 * valid. A refused fence stays stored: the caller must not enable it. */
ZK_API int64_t libalgo_set_fence_para(int64_t type, int64_t second_arg, int64_t third_arg, FenceShape fence,
                                      const float* q);
ZK_API void libalgo_get_fence_para(FencePara* fence);
ZK_API uint32_t libalgo_get_fence_type(void);

/* 0 when the joints' reduced points and the first n tool spheres lie within the cuboid,
 * else 1. */
ZK_API int is_Robot_inside_ax61(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_inside_ax71(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_inside_al64II(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_inside_lum61(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_inside_tor77(FenceShape fence, const float* q, uint32_t n);
/* 0 when no part of the arm touches the cuboid, else non-zero (also for an arm wholly
 * inside). A tool sphere passes only at one metre or more from every face. */
ZK_API int is_Robot_outside_ax61(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_outside_ax71(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_outside_al64II(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_outside_lum61(FenceShape fence, const float* q, uint32_t n);
ZK_API int is_Robot_outside_tor77(FenceShape fence, const float* q, uint32_t n);
/* The arm against the plane through p1, p2, p3: +1 wholly on the side of the normal
 * (p2 - p1) x (p3 - p1), -1 wholly on the other, 0 touching or straddling (also for a
 * degenerate plane). */
ZK_API int relation_of_AX61_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3]);
ZK_API int relation_of_AX71_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3]);
ZK_API int relation_of_AL64II_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3]);
ZK_API int relation_of_LUM61_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3]);
ZK_API int relation_of_TOR77_and_plane(const float* q, int n, const float p1[3], const float p2[3], const float p3[3]);

/* Clearance of the arm and its tool spheres to the stored cuboid, capped at 1.0. */
ZK_API float isCollision_cuboid_fence_tool_AX61(const float* q);
ZK_API float isCollision_cuboid_fence_tool_AX71(const float* q);
ZK_API float isCollision_cuboid_fence_tool_AL64II(const float* q);
ZK_API float isCollision_cuboid_fence_tool_LUM61(const float* q);
ZK_API float isCollision_cuboid_fence_tool_TOR77(const float* q);
/* Clearance to the stored plane by the capsule ends' unsigned distances, capped at 1.0: a
 * capsule whose ends lie on either side, each far enough, reads as clear. */
ZK_API float isCollision_singlefence_tool_AX61(const float* q);
ZK_API float isCollision_singlefence_tool_AX71(const float* q);
ZK_API float isCollision_singlefence_tool_AX64II(const float* q);
ZK_API float isCollision_singlefence_tool_LUM61(const float* q);
ZK_API float isCollision_singlefence_tool_TOR77(const float* q);
/* The clearance of the model's family to the stored fence; 1.0 for another model or
 * fence type. */
ZK_API float isCollision_fence_tool(const float* q);
/* Speed ratio from the fence clearance at q: within (0, max_ratio], or -2 for contact. */
ZK_API float fence_isCollision(const float* q, float ratio, float scale, float max_ratio);

ZK_EXTERN_C_END

#endif /* LIBALGO_SAFETY_H */

// Collision and safety: turning a clearance into a speed ratio. The self-collision and
// fence ratios share the curve and the selection; the supervision of joint limits and
// singularities will share the selection.
#pragma once

namespace tarn {

// Ratio p = (clearance - d0) * slope / span + base: base at the clearance d0, falling
// to 0 at d0 + span (a clearance of 1 mm).
struct RatioCurve {
    float d0, span, slope, base;
};

// The curve in force: the near one (slowing from 5 cm) while a Cartesian segment or a jog
// generator other than the joint jog runs, the wide one (from 10 cm) otherwise. With
// `steep_near`, the near curve starts at the full ratio 1.0 rather than 0.5.
RatioCurve safety_ratio_curve(bool steep_near);

// The ratio of clearance c: `fail` at contact (c at most 2e-6 with p at most 0.004), else
// the selection of p against the current ratio r, the segment's share s and the maximum
// ratio m.
float safety_clearance_ratio(float c, const RatioCurve& curve, float r, float s, float m, float fail);

// The selection: the candidate is 0 when r or m is exactly 0, p / s when r is above p or
// m above r, else r; the result is m for a candidate above m, `fail` for one at or below
// 0, else the candidate.
float safety_select_ratio(float p, float r, float s, float m, float fail);

}  // namespace tarn

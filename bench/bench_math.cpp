// Math core benchmarks . Targets: a 4 x 4 product below 30 ns and
// mat_fast_svd of a 7 x 6 matrix below 5 us. Each benchmark cycles through a small set of
// seeded inputs so that the branch predictor does not learn one case; run with
// --benchmark_repetitions=N --benchmark_report_aggregates_only=true for median and spread.
// BM_FastSvd7x6_WorstInput reports the slowest input, not only the mean.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>

#include "libalgo.h"

namespace {

constexpr int kInputs = 64;

template <class T, class F>
std::array<T, kInputs> make_inputs(F&& make_one)
{
    std::array<T, kInputs> inputs{};
    std::mt19937 rng(1234);
    for (T& x : inputs) x = make_one(rng);
    return inputs;
}

float uniform(std::mt19937& rng, float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng); }

Pose random_pose(std::mt19937& rng)
{
    Pose p{};
    p.position = Pos{uniform(rng, -1, 1), uniform(rng, -1, 1), uniform(rng, -1, 1)};
    p.euler = Euler{uniform(rng, -3, 3), uniform(rng, -1.5f, 1.5f), uniform(rng, -3, 3)};
    p.quaternion = euler_to_quat(p.euler);
    return p;
}

Matrix random_transform(std::mt19937& rng) { return pose_euler_to_transformation_matrix(random_pose(rng)); }

Mat random_mat(std::mt19937& rng, int rows, int cols)
{
    Mat m = mat_zeros(rows, cols);
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) m.data[i][j] = uniform(rng, -1, 1);
    return m;
}

const auto kTransforms = make_inputs<Matrix>(random_transform);
const auto kPoses = make_inputs<Pose>(random_pose);
const auto kMats7x6 = make_inputs<Mat>([](std::mt19937& rng) { return random_mat(rng, 7, 6); });
const auto kMats6x6 = make_inputs<Mat>([](std::mt19937& rng) {
    Mat m = random_mat(rng, 6, 6);
    for (int i = 0; i < 6; ++i) m.data[i][i] += 3.0f;
    return m;
});

void BM_MatrixProduct4x4(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Matrix r = matrix_m(kTransforms[i % kInputs], kTransforms[(i + 1) % kInputs]);
        benchmark::DoNotOptimize(r);
        ++i;
    }
}
BENCHMARK(BM_MatrixProduct4x4);

void BM_MatrixInverse4x4(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Matrix r = matrix_inv(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_MatrixInverse4x4);

void BM_MatrixInverseFullRank(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Matrix r = matrix_inv_full_rank(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_MatrixInverseFullRank);

void BM_MatrixInverseCoordinateSystem(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Matrix r = matrix_inv_coordinate_system(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_MatrixInverseCoordinateSystem);

void BM_EulerToMatrix(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Matrix r = euler_to_matrix(kPoses[i++ % kInputs].euler);
        benchmark::DoNotOptimize(r);
    }
}
BENCHMARK(BM_EulerToMatrix);

void BM_MatrixToEuler(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Euler e = matrix_to_euler(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(BM_MatrixToEuler);

void BM_EulerToQuat(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Quat q = euler_to_quat(kPoses[i++ % kInputs].euler);
        benchmark::DoNotOptimize(q);
    }
}
BENCHMARK(BM_EulerToQuat);

void BM_QuatToEuler(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Euler e = quat_to_euler(kPoses[i++ % kInputs].quaternion);
        benchmark::DoNotOptimize(e);
    }
}
BENCHMARK(BM_QuatToEuler);

void BM_MatrixToQuat(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Quat q = matrix_to_quat(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(q);
    }
}
BENCHMARK(BM_MatrixToQuat);

void BM_TransformationMatrixToPose(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Pose p = transformation_matrix_to_pose(kTransforms[i++ % kInputs]);
        benchmark::DoNotOptimize(p);
    }
}
BENCHMARK(BM_TransformationMatrixToPose);

void BM_FastSvd7x6(benchmark::State& state)
{
    int i = 0;
    Mat u, s, v;
    for (auto _ : state) {
        int rc = mat_fast_svd(&kMats7x6[i++ % kInputs], &u, &s, &v);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(s);
    }
}
BENCHMARK(BM_FastSvd7x6);

// The worst input: 256 seeded 7 x 6 matrices (every fourth of rank 4), each timed in
// batches of 64 calls; a batch's mean per call, the lowest of 5 batches per input (which
// filters preemption on a shared machine), and of those the largest over all inputs is
// reported as worst_input_ns, next to the median input as median_input_ns.
void BM_FastSvd7x6_WorstInput(benchmark::State& state)
{
    constexpr int kWorstInputs = 256, kBatch = 64, kTries = 5;
    static const auto inputs = [] {
        std::array<Mat, kWorstInputs> a{};
        std::mt19937 rng(4321);
        for (int c = 0; c < kWorstInputs; ++c) {
            a[c] = random_mat(rng, 7, 6);
            if (c % 4 == 3) {
                // Rank 4: columns 4 and 5 repeat combinations of the others.
                for (int i = 0; i < 7; ++i) {
                    a[c].data[i][4] = a[c].data[i][0] - a[c].data[i][1];
                    a[c].data[i][5] = 0.5f * a[c].data[i][2];
                }
            }
        }
        return a;
    }();
    Mat u, s, v;
    std::array<double, kWorstInputs> per_input{};
    for (auto _ : state) {
        for (int c = 0; c < kWorstInputs; ++c) {
            double best = 1e300;
            for (int t = 0; t < kTries; ++t) {
                const auto t0 = std::chrono::steady_clock::now();
                for (int k = 0; k < kBatch; ++k) {
                    int rc = mat_fast_svd(&inputs[c], &u, &s, &v);
                    benchmark::DoNotOptimize(rc);
                    benchmark::ClobberMemory();
                }
                const auto t1 = std::chrono::steady_clock::now();
                best = std::min(best, std::chrono::duration<double, std::nano>(t1 - t0).count() / kBatch);
            }
            per_input[c] = best;
        }
    }
    std::sort(per_input.begin(), per_input.end());
    state.counters["worst_input_ns"] = per_input.back();
    state.counters["median_input_ns"] = per_input[kWorstInputs / 2];
}
BENCHMARK(BM_FastSvd7x6_WorstInput)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_MatInverse6x6(benchmark::State& state)
{
    int i = 0;
    Mat out;
    for (auto _ : state) {
        int rc = mat_inv(kMats6x6[i++ % kInputs], &out);
        benchmark::DoNotOptimize(rc);
        benchmark::DoNotOptimize(out);
    }
}
BENCHMARK(BM_MatInverse6x6);

void BM_MatPinvSvd7x6(benchmark::State& state)
{
    int i = 0;
    for (auto _ : state) {
        Mat x = mat_pinv_svd(kMats7x6[i++ % kInputs]);
        benchmark::DoNotOptimize(x);
    }
}
BENCHMARK(BM_MatPinvSvd7x6);

}  // namespace

// Decoding one realtime state datagram, as the UDP thread does once per controller cycle:
// a full datagram of a seven-axis arm with every optional block present.
#include <cJSON.h>

#include <cstring>
#include <string>

#include "bench_support.h"
#include "zk_realtime.h"

namespace {

using zk_bench::LatencySamples;

std::string full_datagram()
{
    return R"({"zk_plus_state":{"sys_state":1,"dof_state":[1,1,1,1,1,1],"dof_err":[0,0,0,0,0,0],)"
           R"("pos":[100,200,300,400,500,600],"speed":[1,2,3,4,5,6],"angle":[10,20,30,40,50,60],)"
           R"("current":[11,12,13,14,15,16],"normal_force":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18],)"
           R"("tangential_force":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18],)"
           R"("tangential_force_dir":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18],)"
           R"("tsa":[1,2,3,4,5,6,7,8,9,10,11,12],"tma":[1,2,3,4,5,6,7,8,9,10,11,12],)"
           R"("touch_data":[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18],"force":[1,2,3,4,5,6]},)"
           R"("zk_plus_base":{"manu":"ZK","type":1,"hv":"H1.2","sv":"S3.4","bv":"B5.6","id":1,"dof":6,)"
           R"("check":1,"bee":0,"force":true,"touch":true,"touch_num":5,"touch_sw":1,"hand":1,)"
           R"("pos_up":[1000,1000,1000,1000,1000,1000],"pos_low":[0,0,0,0,0,0],)"
           R"("angle_up":[90,90,90,90,90,90],"angle_low":[-90,-90,-90,-90,-90,-90],)"
           R"("speed_up":[100,100,100,100,100,100],"speed_low":[1,1,1,1,1,1],)"
           R"("force_up":[50,50,50,50,50,50],"force_low":[0,0,0,0,0,0]},)"
           R"("aloha_state":{"io1_state":1,"io2_state":0},"arm_current_status":"move_through_joint",)"
           R"("hand":{"hand_pos":[100,200,300,400,500,600],"hand_angle":[10,20,30,40,50,60],)"
           R"("hand_force":[1,2,3,4,5,6],"hand_state":[0,0,0,0,0,0],"hand_err":0},)"
           R"("lift_state":{"pos":120000,"height":800,"current":1200,"err_flag":0,"en_flag":1},)"
           R"("expand_state":{"joint_id":1,"mode":0,"pos":-35000,"current":300,"err_flag":0,"en_flag":1},)"
           R"("joint_status":{"joint_current":[1200,-800,450,0,15,-60,2300],)"
           R"("joint_en_flag":[1,1,1,1,1,1,1],"joint_err_code":[0,0,0,0,0,0,0],)"
           R"("joint_position":[12345,-45000,90000,-1500,60000,0,179999],)"
           R"("joint_temperature":[36500,37200,38000,35100,34000,33900,36000],)"
           R"("joint_voltage":[48100,48000,48050,47990,48010,48020,48000],)"
           R"("joint_speed":[1000,-2000,3000,0,500,-500,250]},)"
           R"("six_force_sensor":{"force":[1000,-2000,3000,40,-50,60],"zero_force":[1,2,3,4,5,6],"coordinate":0},)"
           R"("one_force_sensor":{"force":[1500],"zero_force":[10],"coordinate":1},)"
           R"("waypoint":{"quat":[707107,0,707107,0],"euler":[3141,-1570,785],"position":[450000,-120000,380000]},)"
           R"("err":[0]})";
}

void BM_ParseFullRealtimeDatagram(benchmark::State& state)
{
    const std::string text = full_datagram();
    zk_realtime_arm_joint_state_t record;
    if (parse_zk_realtime_arm_joint_state(text.c_str(), &record) != 0) {
        state.SkipWithError("datagram does not parse");
        return;
    }
    LatencySamples samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        benchmark::DoNotOptimize(parse_zk_realtime_arm_joint_state(text.c_str(), &record));
        samples.add(std::chrono::steady_clock::now() - start);
        benchmark::ClobberMemory();
    }
    samples.report(state);
    state.counters["bytes"] = static_cast<double>(text.size());
}
BENCHMARK(BM_ParseFullRealtimeDatagram)->Iterations(100000);

// The reference: building and freeing the same datagram's tree with cJSON alone, with no
// record filled.
void BM_CJsonTreeBaseline(benchmark::State& state)
{
    const std::string text = full_datagram();
    LatencySamples samples;
    samples.reserve(static_cast<size_t>(state.max_iterations));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        cJSON* tree = cJSON_Parse(text.c_str());
        benchmark::DoNotOptimize(tree);
        cJSON_Delete(tree);
        samples.add(std::chrono::steady_clock::now() - start);
    }
    samples.report(state);
}
BENCHMARK(BM_CJsonTreeBaseline)->Iterations(100000);

}  // namespace

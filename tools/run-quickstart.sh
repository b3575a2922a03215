#!/bin/sh
# The main job, from a fresh clone: build the library, the quickstart host program and the
# controller simulator; start the simulator in the background on a free port of 127.0.0.1;
# run the quickstart against it; stop the simulator.
# usage: tools/run-quickstart.sh [simulator options...]   (see build/tools/zk_simulator --help)
set -eu
cd "$(dirname "$0")/.."
tools/ensure-deps.sh

echo "== building the library, the quickstart and the simulator"
cmake -S . -B build -G Ninja -DBUILD_EXAMPLES=ON -DBUILD_TOOLS=ON >/dev/null
cmake --build build -j 2 --target quickstart zk_simulator >/dev/null

port_file=$(mktemp)
simulator_log=build/zk_simulator.log
build/tools/zk_simulator --port 0 "$@" >"$port_file" 2>"$simulator_log" &
simulator=$!
stop_simulator() {
    kill "$simulator" 2>/dev/null || true
    wait "$simulator" 2>/dev/null || true
    rm -f "$port_file"
}
trap stop_simulator EXIT
trap 'exit 130' INT TERM

# The simulator prints its port once it listens.
for _ in $(seq 100); do
    [ -s "$port_file" ] && break
    kill -0 "$simulator" 2>/dev/null || break
    sleep 0.05
done
port=$(head -n 1 "$port_file")
if [ -z "$port" ]; then
    echo "the simulator did not start:" >&2
    cat "$simulator_log" >&2
    exit 1
fi
echo "== simulator listening on 127.0.0.1:$port (its log: $simulator_log)"
echo "== running: build/examples/quickstart 127.0.0.1 $port"
echo
build/examples/quickstart 127.0.0.1 "$port"

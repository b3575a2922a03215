#!/bin/sh
# The main job: build the library and its examples, start a controller on 127.0.0.1, run the
# quickstart host program against it, and stop the controller.
set -eu
cd "$(dirname "$0")/.."
tools/ensure-deps.sh
cmake -S . -B build -G Ninja -DBUILD_TESTS=ON -DBUILD_EXAMPLES=ON >/dev/null
cmake --build build -j 2 --target quickstart zk_standin_controller
port_file=$(mktemp)
build/tests/zk_standin_controller >"$port_file" 2>/dev/null &
controller=$!
trap 'kill $controller 2>/dev/null; rm -f "$port_file"' EXIT INT TERM
for _ in $(seq 50); do [ -s "$port_file" ] && break; sleep 0.1; done
build/examples/quickstart 127.0.0.1 "$(cat "$port_file")"

#!/usr/bin/env bash
# Builds the agent and ldpctl (installing the build tools when they are missing) and runs the agent
# in the foreground with the given arguments, for example: ./tools/run.sh --config examples/ldp.conf
set -euo pipefail
here=$(pwd)
cd "$(dirname "$0")/.."
source tools/deps.sh
ldp_build_tools
ldp_configure build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"${LDP_JOBS:-2}" --target ldp-agent ldpctl
agent=$(pwd)/build/ldp-agent
cd "$here"
exec "$agent" "$@"

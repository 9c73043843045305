#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Builds libkv and takes the tour: the foundation in the sandbox, then the
# hardware access and the platform discovery on the simulated example board,
# then one sensor event from its hand-off slot to the text SEL log, then the
# SNMP agent's and the mail client's settings files.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh tour
sh scripts/configure.sh build
meson compile -C build >/dev/null
echo "==== foundation (kvsandbox)"
build/tools/kvsandbox -- build/examples/foundation_tour
echo "==== hardware (kvsim, sim/boards/example.json)"
build/tools/kvsim sim/boards/example.json -- build/examples/board_tour
echo "==== platform discovery (kvsim, sim/boards/example.json)"
build/tools/kvsim sim/boards/example.json -- build/examples/platform_tour
echo "==== SEL events (kvsandbox)"
build/tools/kvsandbox -- build/examples/events_tour
echo "==== services (kvsandbox)"
build/tools/kvsandbox -- build/examples/services_tour

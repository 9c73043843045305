#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Configures a build folder with the meson options given: a new folder is
# set up, an existing one reconfigured, so that an option changed since the
# last run takes effect (unchanged options rebuild nothing).
#   sh scripts/configure.sh DIR [OPTION]...
set -eu
dir=$1
shift
if [ -f "$dir/build.ninja" ]; then
    meson setup --reconfigure "$dir" "$@" >/dev/null
else
    meson setup "$dir" "$@" >/dev/null
fi

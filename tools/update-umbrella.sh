#!/usr/bin/env bash
# Rewrites nordalib/nordalib.h to include every header of the library, sorted.
set -euo pipefail
cd "$(dirname "$0")/.."
{
    echo '#pragma once'
    echo '// Umbrella header: every public header of nordalib.'
    echo
    find nordalib -name '*.h' ! -path nordalib/nordalib.h | LC_ALL=C sort | sed 's/.*/#include "&"/'
} > nordalib/nordalib.h

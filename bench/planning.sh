#!/usr/bin/env bash
# Update planning over generated guide manifests of 50, 200 and 500 versions: time of reading the
# manifest, of planning the cheapest patch chain, and of the whole update decision (best of seven),
# with the peak resident memory of each size's own process. Usage: bench/planning.sh <build-dir>
set -euo pipefail
"$1/bench/planning" 50 200 500

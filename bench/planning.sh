#!/usr/bin/env bash
# Update planning over generated guide manifests of 50, 200, 500 and 10,000 versions: time of reading the
# manifest, of planning the cheapest patch chain, and of the whole update decision (best of seven),
# with the resident memory of each size's own process once the manifest text is made and its peaks
# while reading, planning and deciding. Usage: bench/planning.sh <build-dir>
set -euo pipefail
"$1/bench/planning" 50 200 500 10000

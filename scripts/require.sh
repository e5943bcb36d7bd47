# Sourced by the demo and the benchmarks: stop at once, with one clear line, when a piece is missing,
# instead of failing half-way through a long run.
#   require_built LABEL FILE...   each FILE must be an executable of the build
#   require_tools LABEL TOOL...   each TOOL must be on PATH
require_built() {
    local label="$1" file
    shift
    for file in "$@"; do
        [ -x "$file" ] || { echo "$label: $file is not built" >&2; exit 1; }
    done
}

require_tools() {
    local label="$1" tool
    shift
    for tool in "$@"; do
        command -v "$tool" >/dev/null || { echo "$label: $tool not found" >&2; exit 1; }
    done
}

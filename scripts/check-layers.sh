#!/usr/bin/env bash
# Layers depend downward only: a library file includes its own folder and the folders
# below it, never a higher one, a sibling stage or anything outside the library.
#   core < dsp < filters < meters < {enhance, eq, dynamics} < chain
# Prints FILE:LINE for every include that breaks this; exit status 1 when there is one.
set -euo pipefail
cd "$(dirname "$0")/.."
declare -A rank=([core]=0 [dsp]=1 [filters]=2 [meters]=3 [enhance]=4 [eq]=4 [dynamics]=4 [chain]=5)
status=0
while IFS=: read -r file line text; do
    from=${file%%/*}
    to=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"([^/"]*)\/.*/\1/' <<<"$text")
    if [ "$to" != "$from" ] && [ "${rank[$to]:-99}" -ge "${rank[$from]}" ]; then
        echo "$file:$line: includes $to/, which is not below $from/" >&2
        status=1
    fi
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"/]+/' "${!rank[@]}")
exit $status

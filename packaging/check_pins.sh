#!/usr/bin/env bash
# Refuses workflows whose actions are not pinned to a commit:
#   check_pins.sh WORKFLOW...
# A tag can be moved to other code at any time, and that code would run with the signing certificate. Pin an
# action by the commit that its tag names today, with the tag as a comment:
#   git ls-remote https://github.com/actions/checkout v4
#   - uses: actions/checkout@COMMIT  # v4
# The exit status is 0 if every action is pinned, and 1 if not.
set -euo pipefail

unpinned=$(grep -HnE '^[[:space:]]*(- +)?uses:' "$@" | grep -vE '@[0-9a-f]{40}([[:space:]]|$)' || true)
[ -n "$unpinned" ] || exit 0
echo "check_pins.sh: these actions are not pinned to a commit; see the head of this script:" >&2
echo "$unpinned" >&2
exit 1
